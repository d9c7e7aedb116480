// Prints tables for people.
#pragma once

#include <string>
#include <vector>

namespace runenv {

struct TableRow {
  std::vector<std::string> cells;  // printable; each row has the same number of cells
  const char* colour = nullptr;    // the terminal's code for one cell, such as "32"; null: none
};

// Returns whether standard output is a terminal and NO_COLOR is unset or empty.
bool has_colours();

// Prints the rows. The first row has the titles. Each column is as wide as its widest cell. On a
// narrow terminal the last columns are left out, but never the first three. The cells of the column
// with the index `coloured` have the colour of their row.
void print_table(const std::vector<TableRow>& rows, size_t coloured);

}  // namespace runenv
