// Text from outside as it may leave a program: nothing in it moves a cursor, begins a line, turns the reading
// direction, stays unseen or is taken for a formula. One function for each kind of place that text goes to.
#pragma once

#include <string>
#include <string_view>

namespace plc_base {

// Controls, line and paragraph separators, signs of direction, all that is never drawn, and what is no character: what
// a terminal obeys or keeps from its reader.
bool is_hidden(char32_t value);

// The first of them in a text of UTF-8, written out; empty when there is none.
std::string first_hidden(std::string_view text);

// For one line of a terminal or a log. What is_hidden finds becomes \n, \r, \t, \x1b (below U+0080) or \u{202e}, a byte
// of no UTF-8 \xff; all else, a backslash too, stays as it is. Shown text comes back unchanged.
std::string shown_line(std::string_view text);

// The same for a name that a line begins with: in quotes where it could be taken for somebody who speaks, "plc-host:
// ...", and where blanks at its ends would not be seen.
std::string shown_first(std::string_view text);

// For several lines of the program's own: the same for each of them; line feeds stay.
std::string shown_lines(std::string_view text);

// For JSON that is written out already, and stays the same JSON: what is_hidden finds in its strings becomes \u202e, a
// byte of no UTF-8 \ufffd. Line feeds between its members stay.
std::string shown_json(std::string_view json);

// For a text of HTML, between tags or quotes: shown_line, with &, <, >, " and ' as names of characters.
std::string shown_html(std::string_view text);

// Whether a spreadsheet would take the text for a formula.
bool is_formula(std::string_view text);

// For a text of a line of CSV: shown_line, quoted where that is needed, and behind an apostrophe where a spreadsheet
// would take the text, or its part behind a semicolon, for a formula. Numbers that the program formed need none of it.
std::string shown_csv_cell(std::string_view text);

}  // namespace plc_base
