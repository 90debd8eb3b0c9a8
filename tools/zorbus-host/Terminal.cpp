#include "Terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace host {

namespace {

// Written to by the Ctrl-C handler, read by ReadLine.
int wakeRead = -1, wakeWrite = -1;

void Drain() {
    char bytes[64];
    while (wakeRead >= 0 && read(wakeRead, bytes, sizeof bytes) > 0) {
    }
}

}  // namespace

void Terminal::Open(bool outputIsTerminal) {
    canAsk = isatty(STDIN_FILENO) == 1;
    out = stderr;
    if (outputIsTerminal) {
        out = stdout;
    } else if (canAsk) {
        std::FILE* tty = std::fopen("/dev/tty", "we");
        if (tty) out = tty;
    }
    int ends[2];
    if (wakeRead < 0 && pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0) {
        wakeRead = ends[0];
        wakeWrite = ends[1];
    }
}

void Terminal::DiscardTypeAhead() {
    if (canAsk) tcflush(STDIN_FILENO, TCIFLUSH);
    Drain();
}

void Terminal::Wake() {
    if (wakeWrite < 0) return;
    const char byte = 1;
    const ssize_t ignored = write(wakeWrite, &byte, 1);
    (void)ignored;
}

Terminal::Outcome Terminal::ReadLine(std::string& line, double seconds) {
    line.clear();
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    for (;;) {
        int wait = -1;
        if (seconds > 0) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            if (left.count() <= 0) return TimedOut;
            wait = static_cast<int>(std::min<long long>(left.count() + 1, 1 << 30));
        }
        pollfd watched[2] = {{STDIN_FILENO, POLLIN, 0}, {wakeRead, POLLIN, 0}};
        const int ready = poll(watched, wakeRead >= 0 ? 2 : 1, wait);
        if (ready < 0 && errno != EINTR) return Closed;
        if (ready <= 0) continue;
        if (watched[1].revents & POLLIN) {
            Drain();
            return Interrupted;
        }
        if (!(watched[0].revents & (POLLIN | POLLHUP | POLLERR))) continue;
        char bytes[256];
        const ssize_t got = read(STDIN_FILENO, bytes, sizeof bytes);
        if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (got <= 0) return line.empty() ? Closed : Answered;
        line.append(bytes, static_cast<size_t>(got));
        const size_t newline = line.find('\n');
        if (newline != std::string::npos) {
            line.erase(newline);
            return Answered;
        }
    }
}

}  // namespace host
