#include "TextTable.h"

#include <algorithm>

namespace kqagent {
namespace {

// Width on a terminal, by code points: UTF-8 continuation bytes take none.
size_t width(const std::string& text)
{
    size_t count = 0;
    for (char c : text)
        if ((static_cast<unsigned char>(c) & 0xC0) != 0x80)
            ++count;
    return count;
}

void printRow(std::ostream& out, const TextRow& row, const std::vector<size_t>& widths)
{
    std::string line;
    for (size_t column = 0; column < widths.size(); ++column) {
        const std::string cell = column < row.size() ? row[column] : std::string();
        line += cell;
        // The last column needs no padding; trailing blanks help nobody.
        if (column + 1 < widths.size())
            line.append(widths[column] - width(cell) + 2, ' ');
    }
    line += '\n';
    out << line;
}

} // namespace

std::string printable(const std::string& text)
{
    std::string shown = text;
    for (char& c : shown)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
            c = '?';
    return shown;
}

void printTable(std::ostream& out, const TextRow& header, const std::vector<TextRow>& rows)
{
    std::vector<size_t> widths(header.size());
    for (size_t column = 0; column < header.size(); ++column) {
        widths[column] = width(header[column]);
        for (const TextRow& row : rows)
            if (column < row.size())
                widths[column] = std::max(widths[column], width(row[column]));
    }
    printRow(out, header, widths);
    for (const TextRow& row : rows)
        printRow(out, row, widths);
}

} // namespace kqagent
