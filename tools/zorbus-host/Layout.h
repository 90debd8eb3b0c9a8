// Text laid out for a screen of a given width: lines wrapped between words,
// tables whose columns share the width. Kept free of the terminal so that
// the tests can lay out literal text.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace host {

// Columns that UTF-8 text takes: one per character, none for a colour code.
size_t TextWidth(const std::string& text);

// `text` in lines of at most `width` columns, broken at blanks; a word wider
// than a line is cut. Blanks inside a line stay as they are.
std::vector<std::string> Wrap(const std::string& text, size_t width);

// `text` wrapped to `width`, its lines after the first indented by `hang`
// columns more than the first; the first line starts at `indent`.
std::string WrapIndented(const std::string& text, size_t width, size_t indent, size_t hang);

struct Row {
    std::vector<std::string> cells;
    // Lines under the row, from the second column on; leading blanks indent further.
    std::vector<std::string> details;
};

// A table with a heading line, columns two blanks apart and no line wider
// than `width` (as long as each column keeps room for its heading). `paint`,
// when given, decorates a cell's text after it has been laid out (colour).
using Paint = std::function<std::string(size_t row, size_t column, const std::string& text)>;
std::string Table(const std::vector<std::string>& headings, const std::vector<Row>& rows, size_t width,
                  const Paint& paint = nullptr);

// The width of the terminal behind standard output, error or input, else
// COLUMNS, else 80.
size_t ScreenWidth();

}  // namespace host
