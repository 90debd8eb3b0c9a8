#include "StorageSupport.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

TempTree::TempTree() {
    char pattern[] = "/tmp/zorbus-storage-XXXXXX";
    if (!mkdtemp(pattern)) throw std::runtime_error("mkdtemp failed");
    path = pattern;
    fs::create_directories(path + "/stubs");
    oldPath = getenv("PATH") ? getenv("PATH") : "/usr/bin:/bin";
    setenv("PATH", (path + "/stubs:" + oldPath).c_str(), 1);
}

TempTree::~TempTree() {
    setenv("PATH", oldPath.c_str(), 1);
    if (!oldDir.empty() && chdir(oldDir.c_str()) != 0) std::abort();
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

std::string TempTree::Write(const std::string& name, const std::string& text) const {
    const std::string file = path + "/" + name;
    fs::create_directories(fs::path(file).parent_path());
    std::ofstream out(file, std::ios::binary);
    out << text;
    return file;
}

std::string TempTree::Read(const std::string& name) const {
    std::ifstream in(path + "/" + name, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

bool TempTree::Exists(const std::string& name) const { return fs::exists(path + "/" + name); }

void TempTree::Stub(const std::string& name, const std::string& body) const {
    // Each argument in brackets, so that one argument with blanks shows as one.
    const std::string script = "#!/bin/sh\n{ printf '%s' '" + name + "'; for a in \"$@\"; do printf ' [%s]' \"$a\"; "
                               "done; echo; } >> '" + path + "/calls.log'\n" + body + "\n";
    const std::string file = Write("stubs/" + name, script);
    chmod(file.c_str(), 0755);
}

std::string TempTree::Calls() const { return Read("calls.log"); }

void TempTree::Enter() {
    char here[4096];
    if (!getcwd(here, sizeof here)) throw std::runtime_error("getcwd failed");
    oldDir = here;
    if (chdir(path.c_str()) != 0) throw std::runtime_error("chdir failed");
}
