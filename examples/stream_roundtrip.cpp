// Builds a small table (a matrix of observations by variables, with its variable names,
// a vector of weights and a list of selected rows), writes it to a file through the stream
// framework, reads it back and prints what it read.
//
//   stream_roundtrip [FILE]

#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>

#include "ncds/ncds.h"

namespace {

constexpr std::uint16_t kNames = 0;
constexpr std::uint16_t kValues = 1;
constexpr std::uint16_t kWeights = 2;
constexpr std::uint16_t kSelected = 3;
constexpr std::uint16_t kTitle = 4;

struct Table {
  std::string title;
  NCStringVector names;
  NCDataMatrix<float> values;
  NCDataVector<float> weights;
  NCIntegralVector<int, -99> selected;
};

Table MakeTable() {
  Table t;
  t.title = "Reactor R-12, first shift";
  t.names = NCStringVector(std::vector<std::string>{"Temperature", "Pressure", "Flow"});
  t.values = NCDataMatrix<float>(5, 3, 0.0F);
  for (std::size_t row = 0; row < 5; ++row) {
    t.values(row, 0) = 20.5F + static_cast<float>(row);
    t.values(row, 1) = 1.01F * static_cast<float>(row + 1);
    t.values(row, 2) = 100.0F - 7.5F * static_cast<float>(row);
  }
  t.values(3, 1) = -99.0F;  // a missing cell
  t.weights = NCDataVector<float>(3);
  t.weights[0] = 1.0F;
  t.weights[1] = 0.5F;
  t.weights[2] = 0.25F;
  for (int row : {0, 2, 4}) t.selected.push_back(row);
  return t;
}

bool Write(const Table& t, const std::string& path) {
  std::ofstream os(path, std::ios::binary | std::ios::trunc);
  OutputStreamDirectory dir(os, 5);
  WriteToStreamDir(t.names, dir, kNames);
  WriteToStreamDir(t.values, dir, kValues);
  WriteToStreamDir(t.weights, dir, kWeights);
  WriteToStreamDir(t.selected, dir, kSelected);
  WriteToStreamDir(t.title, dir, kTitle);
  return dir.Close() && os.flush();
}

bool Read(Table& t, const std::string& path) {
  std::ifstream is(path, std::ios::binary);
  if (!is) return false;
  InputStreamDirectory dir(is);
  try {
    ReadFromStreamDir(t.names, dir, kNames, true);
    ReadFromStreamDir(t.values, dir, kValues, true);
    ReadFromStreamDir(t.weights, dir, kWeights, true);
    ReadFromStreamDir(t.selected, dir, kSelected, true);
    ReadFromStreamDir(t.title, dir, kTitle, false);
  } catch (const VxStreamError& e) {
    std::cerr << e.what() << '\n';
    return false;
  }
  return dir.IsValid();
}

void Print(const Table& t) {
  std::cout << t.title << "\n\n";
  std::cout << "obs";
  for (std::size_t j = 0; j < t.names.Size(); ++j) std::printf(" %12s", t.names[j].c_str());
  std::cout << '\n';
  for (std::size_t i = 0; i < t.values.SizeRows(); ++i) {
    std::printf("%3zu", i + 1);
    for (std::size_t j = 0; j < t.values.SizeColumns(); ++j) {
      const float v = t.values(i, j, -99.0F);
      if (v == -99.0F) {
        std::printf(" %12s", "missing");
      } else {
        std::printf(" %12.3f", static_cast<double>(v));
      }
    }
    std::cout << '\n';
  }
  std::cout << "\nweights:";
  for (float w : t.weights) std::printf(" %g", static_cast<double>(w));
  std::cout << "\nselected observations:";
  for (int row : t.selected) std::cout << ' ' << row + 1;
  std::cout << "\nweighted sum per observation (missing where a cell is missing):";
  const NCDataVector<float> sums = t.values * t.weights;
  for (float s : sums) {
    if (s == -99.0F) {
      std::cout << " missing";
    } else {
      std::printf(" %g", static_cast<double>(s));
    }
  }
  std::cout << '\n';
}

}  // namespace

int main(int argc, char** argv) {
  const std::string path = argc > 1 ? argv[1] : "example.ncds";
  const Table original = MakeTable();
  if (!Write(original, path)) {
    std::cerr << "Could not write " << path << '\n';
    return 1;
  }
  Table back;
  if (!Read(back, path)) {
    std::cerr << "Could not read " << path << " back\n";
    return 1;
  }
  std::ifstream size(path, std::ios::binary | std::ios::ate);
  std::cout << "Wrote and read back " << path << " (" << size.tellg() << " bytes)\n\n";
  Print(back);
  return 0;
}
