#include "StorageMachine.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

void Write(const std::string& path, const std::string& text, bool executable = false) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream out(path, std::ios::binary);
    out << text;
    out.close();
    if (!out) throw std::runtime_error("cannot write " + path);
    if (executable && chmod(path.c_str(), 0755) != 0) throw std::runtime_error("chmod " + path);
}

const char* const sgScan =
    "/dev/sg0: scsi2 channel=0 id=0 lun=0 [em]\n/dev/sg1: scsi3 channel=0 id=0 lun=0 [em]\n"
    "/dev/sg2: scsi4 channel=0 id=0 lun=0 [em]\n/dev/sg3: scsi5 channel=0 id=0 lun=0 [em]\n"
    "/dev/sg4: scsi6 channel=0 id=0 lun=0 [em]\n";
const char* const sgMap =
    "/dev/sg0  /dev/sdb\n/dev/sg1  /dev/sdc\n/dev/sg2  /dev/sdd\n/dev/sg3  /dev/sde\n/dev/sg4  /dev/sdf\n";

}  // namespace

StorageMachine::StorageMachine(const std::string& fixture) : machine(fixture) {
    testbed = machine.Folder() + "/testbed";
    work = machine.Folder() + "/work";
    stubs = machine.Folder() + "/stubs";
    const std::string data = machine.Folder() + "/stubdata";
    const std::string log = machine.Folder() + "/storage.log";
    const std::string mounts = testbed + "/proc/self/mounts";
    Write(data + "/sg_scan", sgScan);
    Write(data + "/sg_map", sgMap);
    Write(data + "/sg_inq", "standard INQUIRY:\n  PQual=0  Device_type=0  RMB=1  version=0x04\n");
    const std::string logLine = "{ printf '%s' \"$(basename \"$0\")\"; for a in \"$@\"; do printf ' [%s]' \"$a\"; "
                                "done; echo; } >> '" + log + "'\n";
    // The SCSI tools, in the working directory and on PATH.
    for (const char* tool : {"sg_scan", "sg_map"}) {
        const std::string body = "#!/bin/sh\n" + logLine + "cat '" + data + "/" + tool + "'\n";
        Write(work + "/" + tool, body, true);
        Write(stubs + "/" + tool, body, true);
    }
    Write(stubs + "/sg_inq", "#!/bin/sh\n" + logLine + "cat '" + data + "/sg_inq'\n", true);
    // mount keeps the discovery's log line and otherwise only edits the
    // testbed's mount table.
    Write(stubs + "/mount",
          "#!/bin/sh\necho \"mount $*\" >> '" + machine.Folder() + "/tools.log'\n" + logLine +
              "[ \"$2\" = vfat ] || exit 0\n"
              "if [ -f '" + data + "/mount_fails' ]; then exit $(cat '" + data + "/mount_fails'); fi\n"
              "printf '%s %s vfat rw 0 0\\n' \"$3\" \"$4\" >> '" + mounts + "'\n",
          true);
    Write(stubs + "/umount",
          "#!/bin/sh\n" + logLine + "[ -f '" + data + "/umount_sticks' ] && exit 32\n"
          "grep -v \" $1 \" '" + mounts + "' > '" + mounts + ".new'; mv '" + mounts + ".new' '" + mounts + "'\n",
          true);
    for (const char* tool : {"mkdir", "rm", "cp"}) Write(stubs + "/" + tool, "#!/bin/sh\n" + logLine, true);

    fs::create_directories(testbed + "/ioctl");
    listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string socketPath = testbed + "/ioctl/_default";
    socketPath.copy(address.sun_path, sizeof address.sun_path - 1);
    if (listener < 0 || bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, 64) != 0)
        throw std::runtime_error("cannot listen on " + socketPath);
    acceptor = std::thread([this] {
        while (!stop) {
            pollfd p{listener, POLLIN, 0};
            if (poll(&p, 1, 50) > 0) {
                const int fd = accept(listener, nullptr, nullptr);
                if (fd >= 0) accepted.push_back(fd);
            }
        }
    });
}

StorageMachine::~StorageMachine() {
    stop = true;
    acceptor.join();
    for (int fd : accepted) close(fd);
    close(listener);
}

void StorageMachine::AddDisk(const std::string& name, const std::string& contents) {
    Write(testbed + "/dev/" + name, contents);
}

std::string StorageMachine::Disk(const std::string& name) const { return ReadText(testbed + "/dev/" + name); }

void StorageMachine::SetReference(const std::string& contents) { Write(work + "/SSO.DAT", contents); }

void StorageMachine::SetSgMap(const std::string& text) { Write(machine.Folder() + "/stubdata/sg_map", text); }

void StorageMachine::SetSgInq(const std::string& text) { Write(machine.Folder() + "/stubdata/sg_inq", text); }

void StorageMachine::FailMount(int status) {
    Write(machine.Folder() + "/stubdata/mount_fails", std::to_string(status) + "\n");
}

void StorageMachine::StickMount() { Write(machine.Folder() + "/stubdata/umount_sticks", "1\n"); }

void StorageMachine::SetMounts(const std::string& table) { Write(testbed + "/proc/self/mounts", table); }

std::string StorageMachine::Mounts() const { return ReadText(testbed + "/proc/self/mounts"); }

std::vector<std::string> StorageMachine::Calls() const {
    std::vector<std::string> calls;
    std::ifstream in(machine.Folder() + "/storage.log");
    for (std::string line; std::getline(in, line);)
        if (line.compare(0, 6, "mount ") != 0 || line.find("[usbfs]") == std::string::npos) calls.push_back(line);
    return calls;
}

bool StorageMachine::AnyFileNamed(const std::string& text) const {
    for (const auto& entry : fs::recursive_directory_iterator(machine.Folder()))
        if (entry.path().filename().string().find(text) != std::string::npos) return true;
    return false;
}

Session StorageMachine::Run(const std::vector<std::string>& script) { return machine.Run(script); }

std::string RunTestLine(const std::string& device, const std::string& test, const std::string& attributes) {
    return "run <runTest device=\"" + device + "\" test=\"" + test + "\" component=\"libzorbus.so\"" +
           (attributes.empty() ? "" : " " + attributes) + "/>";
}

Outcome ReadOutcome(const Step& step) {
    Outcome outcome;
    const Element result = Element::Parse(step.answer);
    outcome.state = result.Attr("currentState");
    for (const Element* error : result.Children("error")) {
        outcome.error = error->Attr("key");
        outcome.detail = error->Attr("detail");
        outcome.text = error->text;
    }
    for (const std::string& event : step.events) {
        const Element e = Element::Parse(event);
        if (e.name == "diagUpdate") outcome.progress.push_back(std::atoi(e.Attr("percentComplete").c_str()));
        if (e.name == "diagPrompt") outcome.prompts.push_back(e.text);
    }
    return outcome;
}
