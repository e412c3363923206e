#pragma once
// Readable tables for people: columns as wide as their widest cell, counted
// in code points (a UTF-8 name takes as many columns as it has characters),
// and control characters shown as '?' so that text from the host cannot
// break a line or move the cursor.
#include <ostream>
#include <string>
#include <vector>

namespace kqagent {

typedef std::vector<std::string> TextRow;

// `text` with every control character replaced by '?'.
std::string printable(const std::string& text);

// The header, then every row; a row shorter than the header is padded with
// empty cells. Cells are taken as they are (make them printable first).
void printTable(std::ostream& out, const TextRow& header, const std::vector<TextRow>& rows);

} // namespace kqagent
