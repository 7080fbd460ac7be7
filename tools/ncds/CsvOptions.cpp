#include "tools/ncds/CsvOptions.h"

#include "ncds/foundations/Exception.h"

namespace ncds::tool {

void CheckCsvCharacters(char separator, char decimal) {
  if (separator == '"' || separator == '\r' || separator == '\n' || separator == '\0') {
    throw NCError(ExceptionMessage::translate(
        "A double quote, a line break or a NUL character cannot separate the fields of a CSV "
        "file."));
  }
  if (decimal != '.' && decimal != ',') {
    throw NCError(
        ExceptionMessage::translate("The decimal character of numbers must be '.' or ','."));
  }
  if (separator == decimal) {
    throw NCError(
        ExceptionMessage::translate("The field separator and the decimal character must differ."));
  }
}

}  // namespace ncds::tool
