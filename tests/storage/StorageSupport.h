// A temporary folder for one test, with stub tools on PATH that only write
// inside it, and the working directory moved into it while the test runs.
#pragma once

#include <string>

class TempTree {
public:
    TempTree();
    ~TempTree();
    TempTree(const TempTree&) = delete;
    TempTree& operator=(const TempTree&) = delete;

    const std::string& Path() const { return path; }
    std::string Write(const std::string& name, const std::string& text) const;
    std::string Read(const std::string& name) const;
    bool Exists(const std::string& name) const;
    // A shell script `name` in the stub folder, which is first on PATH.
    void Stub(const std::string& name, const std::string& body) const;
    // Every stub call, one line each: the tool and its arguments in brackets.
    std::string Calls() const;
    // Makes the folder the working directory until the tree goes.
    void Enter();

private:
    std::string path;
    std::string oldPath;
    std::string oldDir;
};
