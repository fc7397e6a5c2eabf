#ifndef VISIBLE_TEXT_H
#define VISIBLE_TEXT_H

#include <string>

// The text with everything that a terminal might obey written out as \xNN, byte by byte: control
// characters of both sets, and bytes that are no UTF-8, which some terminals take for the second
// set. Values come from anywhere; they must not move the cursor or forge lines.
std::string VisibleText(const std::string& text);

#endif
