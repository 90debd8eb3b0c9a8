#include "Layout.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace host {

namespace {

// The bytes of a colour code ("\033[...m") that starts at `at`, or 0: they take no column.
size_t EscapeLength(const std::string& text, size_t at) {
    if (text.compare(at, 2, "\033[") != 0) return 0;
    size_t end = at + 2;
    while (end < text.size() && (text[end] < 0x40 || text[end] > 0x7E)) ++end;
    return std::min(end + 1, text.size()) - at;
}

// The first `columns` characters of `text`, and the rest.
std::pair<std::string, std::string> Cut(const std::string& text, size_t columns) {
    size_t at = 0, seen = 0;
    while (at < text.size()) {
        if (const size_t escape = EscapeLength(text, at)) {
            at += escape;
            continue;
        }
        if ((static_cast<unsigned char>(text[at]) & 0xC0) != 0x80 && seen++ == columns) break;
        ++at;
    }
    return {text.substr(0, at), text.substr(at)};
}

std::string Blanks(size_t count) { return std::string(count, ' '); }

}  // namespace

size_t TextWidth(const std::string& text) {
    size_t width = 0;
    for (size_t at = 0; at < text.size();) {
        if (const size_t escape = EscapeLength(text, at)) {
            at += escape;
            continue;
        }
        if ((static_cast<unsigned char>(text[at++]) & 0xC0) != 0x80) ++width;
    }
    return width;
}

std::vector<std::string> Wrap(const std::string& text, size_t width) {
    width = std::max<size_t>(width, 1);
    std::vector<std::string> lines;
    std::string line;
    size_t at = 0;
    while (at < text.size()) {
        const size_t wordStart = text.find_first_not_of(' ', at);
        if (wordStart == std::string::npos) break;
        const std::string gap = text.substr(at, wordStart - at);
        const size_t wordEnd = std::min(text.find(' ', wordStart), text.size());
        std::string word = text.substr(wordStart, wordEnd - wordStart);
        at = wordEnd;
        if (!line.empty() && TextWidth(line) + TextWidth(gap) + TextWidth(word) <= width) {
            line += gap + word;
            continue;
        }
        if (!line.empty()) lines.push_back(line);
        // The first word keeps the blanks that lead the text (an indent).
        line = lines.empty() && line.empty() ? gap : "";
        if (TextWidth(line) + TextWidth(word) > width) line.clear();
        while (TextWidth(word) > width) {
            auto parts = Cut(word, width);
            lines.push_back(parts.first);
            word = parts.second;
        }
        line += word;
    }
    if (!line.empty() || lines.empty()) lines.push_back(line);
    return lines;
}

std::string WrapIndented(const std::string& text, size_t width, size_t indent, size_t hang) {
    const size_t lead = text.find_first_not_of(' ') == std::string::npos ? 0 : text.find_first_not_of(' ');
    indent += lead;
    const size_t room = width > indent + hang + 10 ? width - indent - hang : 10;
    std::vector<std::string> lines = Wrap(text.substr(lead), room + hang);
    std::string out = Blanks(indent) + lines[0];
    if (lines.size() > 1) {
        // The lines after the first are narrower by the hang.
        std::string rest;
        for (size_t i = 1; i < lines.size(); ++i) rest += (i > 1 ? " " : "") + lines[i];
        for (const std::string& line : Wrap(rest, room)) out += "\n" + Blanks(indent + hang) + line;
    }
    return out;
}

std::string Table(const std::vector<std::string>& headings, const std::vector<Row>& rows, size_t width,
                  const Paint& paint) {
    const size_t count = headings.size();
    std::vector<size_t> widths(count), least(count);
    for (size_t c = 0; c < count; ++c) {
        widths[c] = TextWidth(headings[c]);
        for (const Row& row : rows)
            if (c < row.cells.size()) widths[c] = std::max(widths[c], TextWidth(row.cells[c]));
        least[c] = std::min(widths[c], std::max<size_t>(TextWidth(headings[c]), 8));
    }
    const size_t gaps = 2 * (count - 1);
    auto total = [&] {
        size_t sum = gaps;
        for (size_t w : widths) sum += w;
        return sum;
    };
    // The widest column gives up room first, until the table fits.
    while (total() > width) {
        size_t widest = count;
        for (size_t c = 0; c < count; ++c)
            if (widths[c] > least[c] && (widest == count || widths[c] > widths[widest])) widest = c;
        if (widest == count) break;
        --widths[widest];
    }
    auto line = [&](const std::vector<std::string>& cells, size_t row, bool painted) {
        std::vector<std::vector<std::string>> wrapped(count);
        size_t height = 1;
        for (size_t c = 0; c < count; ++c) {
            wrapped[c] = Wrap(c < cells.size() ? cells[c] : "", widths[c]);
            height = std::max(height, wrapped[c].size());
        }
        std::string out;
        for (size_t l = 0; l < height; ++l) {
            std::string text;
            for (size_t c = 0; c < count; ++c) {
                const std::string cell = l < wrapped[c].size() ? wrapped[c][l] : "";
                text += (painted && paint && !cell.empty() ? paint(row, c, cell) : cell);
                if (c + 1 < count) text += Blanks(widths[c] - std::min(widths[c], TextWidth(cell)) + 2);
            }
            text.erase(text.find_last_not_of(' ') + 1);
            out += text + "\n";
        }
        return out;
    };
    std::string out = line(headings, 0, false);
    const size_t indent = count > 1 ? widths[0] + 2 : 2;
    for (size_t r = 0; r < rows.size(); ++r) {
        out += line(rows[r].cells, r, true);
        for (const std::string& detail : rows[r].details) out += WrapIndented(detail, width, indent, 2) + "\n";
    }
    return out;
}

size_t ScreenWidth() {
    for (int fd : {STDOUT_FILENO, STDERR_FILENO, STDIN_FILENO}) {
        winsize size{};
        if (ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return std::max<size_t>(size.ws_col, 20);
    }
    const char* columns = std::getenv("COLUMNS");
    char* end = nullptr;
    const long value = columns ? std::strtol(columns, &end, 10) : 0;
    if (columns && *end == '\0' && value > 0 && value < 10000) return std::max<long>(value, 20);
    return 80;
}

}  // namespace host
