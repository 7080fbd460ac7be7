// Writes a small object through the installed library and reads it back.
#include <iostream>
#include <sstream>

#include <ncds/ncds.h>

int main() {
  std::stringstream ss;
  {
    OutputStreamDirectory dir(ss, 1);
    WriteToStreamDir(std::string("consumer"), dir, 0);
  }
  InputStreamDirectory dir(ss);
  std::string text;
  if (!ReadFromStreamDir(text, dir, 0, true) || text != "consumer") return 1;
  try {
    throw NCError(ExceptionMessage::translate("Dataset {1} does not exist.") % "D1");
  } catch (const NCError& e) {
    std::cout << e.what() << '\n';
    return std::string(e.what()) == "Dataset D1 does not exist." ? 0 : 1;
  }
}
