// Tables for people, and whether they see colours.
#pragma once

#include <string>
#include <vector>

namespace runenv {

struct TableRow {
  std::vector<std::string> cells;  // printable, as many in each row
  const char* colour = nullptr;    // the terminal's code for one cell, such as "32"; null: none
};

// Whether standard output is a terminal and NO_COLOR does not forbid colours.
bool has_colours();

// Prints the rows, the first of which has the titles, each column as wide as its widest cell. On a
// narrow terminal the last columns are left out, but never the first three. The cell in the column
// `coloured` has its row's colour.
void print_table(const std::vector<TableRow>& rows, size_t coloured);

}  // namespace runenv
