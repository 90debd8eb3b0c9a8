// The --state file: only a state file is restored and replaced. Anything
// else is refused before the component is loaded and left as it is. The
// component hands its state over a pipe; the program writes it to a new
// file in the same folder, flushes it and renames it over the old one, so
// that a save that fails (a full disk, a write error) or a crash during it
// leaves the previous file whole.
#pragma once

#include <functional>
#include <string>

namespace host {

class StateFile {
public:
    // Checks `given` before anything runs: a state file, an empty file, or
    // a new file in a folder that can be written. False with the reason.
    bool Check(const std::string& given, std::string& error);

    // The file as given, and whether it holds a state to restore.
    const std::string& Given() const { return given; }
    bool Restore() const { return restore; }
    // The path the component restores from (links followed).
    const std::string& Path() const { return path; }

    // `save` is called with a path for the component to write its state
    // to; what it writes is then put in place. False with the reason.
    bool Save(const std::function<void(const std::string&)>& save, std::string& error) const;

    // Whether bytes begin as a state file of this component does.
    static bool IsState(const std::string& head);

    // `bytes` written to `path` through a new file in the same folder.
    static bool WriteReplacing(const std::string& path, const std::string& bytes, std::string& error);

private:
    std::string given, path;
    bool restore = false;
};

}  // namespace host
