#ifndef NCDS_TOOLS_NCDS_TEXTTABLE_H
#define NCDS_TOOLS_NCDS_TEXTTABLE_H

// Rows of text printed as columns, each as wide as its widest cell, two blanks apart; the
// tool's listings use it.

#include <algorithm>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace ncds::tool {

class TextTable {
 public:
  void AddRow(std::vector<std::string> cells) {
    if (cells.size() > mWidths.size()) mWidths.resize(cells.size(), 0);
    for (std::size_t k = 0; k < cells.size(); ++k) {
      mWidths[k] = std::max(mWidths[k], cells[k].size());
    }
    mRows.push_back(std::move(cells));
  }
  bool empty() const { return mRows.empty(); }
  void Print(std::ostream& out, const std::string& indent = "") const {
    for (const std::vector<std::string>& row : mRows) {
      std::string line = indent;
      for (std::size_t k = 0; k < row.size(); ++k) {
        if (k > 0) line += "  ";
        line += row[k];
        if (k + 1 < row.size()) line.append(mWidths[k] - row[k].size(), ' ');
      }
      line.erase(line.find_last_not_of(' ') + 1);
      out << line << '\n';
    }
  }

 private:
  std::vector<std::vector<std::string>> mRows;
  std::vector<std::size_t> mWidths;
};

}  // namespace ncds::tool

#endif  // NCDS_TOOLS_NCDS_TEXTTABLE_H
