#pragma once
// Small text operations on lines read from files: trimming and splitting
// into words. (One shell assignment is read by parseBashStr, KQS/ShellSyntax.h.)
// Thread safety: no shared state.
namespace KQC {

// Cuts leading and trailing white space (isspace) off a C string in place:
// the trailing part is overwritten with NULs and the first kept character
// is returned (a pointer into `text`).
char* strip_spaces(char* text);

// The next word of the text at *cursor: delimiters before it are skipped,
// the byte after it is overwritten with NUL and *cursor moves past it.
// nullptr (and *cursor at the end) when only delimiters remain; so every
// word handed out is non-empty.
char* getToken(char** cursor, const char* delimiters);

} // namespace KQC
