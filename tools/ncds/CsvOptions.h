#ifndef NCDS_TOOLS_NCDS_CSVOPTIONS_H
#define NCDS_TOOLS_NCDS_CSVOPTIONS_H

// The settings of CSV import and export as the user gives them: the field separator, the
// decimal character of numbers, the texts that stand for missing values, the columns that
// hold observation IDs and the name and number of the new dataset. Plain values.

#include <string>
#include <vector>

namespace ncds::tool {

struct CsvImportOptions {
  // The dataset's name; empty: the file name without folder and extension.
  std::string name;
  // Header names of the columns that hold observation IDs; the first gives the primary IDs.
  // Without any, the primary IDs are the row numbers 1, 2, ...
  std::vector<std::string> idColumns;
  char separator = ',';
  char decimal = '.';
  // Cells equal to one of these (after trimming blanks) are missing, as are empty cells.
  std::vector<std::string> missingTexts;
  // The dataset's number in the project; 0: the lowest number not in use.
  int number = 0;
  // Header names of the columns that hold each row's batch and phase (empty: none). With a
  // batch column the dataset is a batch dataset.
  std::string batchColumn;
  std::string phaseColumn;
  // A column whose name a project variable of another kind carries gets a new variable of a
  // free name (x_1) instead of refusing the import.
  bool renameClashes = false;
};

struct CsvExportOptions {
  char separator = ',';
  char decimal = '.';
  // The header of the primary ID column; empty: the name of the primary ID series.
  std::string primaryIDHeader;
  // Writes the locally centered values (the dataset's centers subtracted) instead.
  bool centered = false;
};

// Throws `NCError` unless `separator` can separate fields (not a double quote, CR or LF) and
// `decimal` is '.' or ',' and differs from the separator.
void CheckCsvCharacters(char separator, char decimal);

}  // namespace ncds::tool

#endif  // NCDS_TOOLS_NCDS_CSVOPTIONS_H
