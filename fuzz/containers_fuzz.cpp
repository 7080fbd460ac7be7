// Feeds arbitrary bytes to the readers of the four persistent containers (matrix, float
// vector, integer vectors, string vector). Any input must give a clean failure or an object
// that writes and reads back identically: no crash, no hang, no allocation beyond what the
// input's size justifies.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

#include "ncds/ncds.h"

namespace {

bool Same(const NCDataMatrix<float>& a, const NCDataMatrix<float>& b) {
  if (a.SizeRows() != b.SizeRows() || a.SizeColumns() != b.SizeColumns()) return false;
  for (std::size_t j = 0; j < a.SizeColumns() && a.SizeRows() != 0; ++j) {
    if (std::memcmp(a.ColumnData(j), b.ColumnData(j), a.SizeRows() * sizeof(float)) != 0) {
      return false;
    }
  }
  return true;
}

bool Same(const NCDataVector<float>& a, const NCDataVector<float>& b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0);
}

template <class T>
bool Same(const T& a, const T& b) {
  return a == b;
}

// A few operations on what was read, so that odd values (NaN, -99, repeats) meet them too.
void Exercise(NCDataMatrix<float>& m) {
  // A matrix without rows may still declare many columns; keep the work small.
  if (m.SizeRows() > 4096 || m.SizeColumns() > 4096 || m.SizeRows() * m.SizeColumns() > 4096) {
    return;
  }
  const NCDataVector<float> product = m * NCDataVector<float>(m.SizeColumns(), 1.0F);
  if (product.size() != m.SizeRows()) std::abort();
  NCIntegralVector<int, -99> odd;
  for (std::size_t i = 1; i < m.SizeRows(); i += 2) odd.push_back(static_cast<int>(i));
  m.RemoveRows(odd);
}

void Exercise(NCDataVector<float>& v) {
  const double median = v.GetMedian();
  (void)median;
  const NCIntegralVector<int, -99> order = v.Sort(true);
  if (order.size() != v.size()) std::abort();
}

template <class T>
void Exercise(T&) {}

template <class T>
void RoundTrip(const std::string& bytes) {
  T object;
  std::istringstream is(bytes);
  if (!(is >> object)) return;
  std::ostringstream os;
  if (!(os << object)) std::abort();
  T again;
  std::istringstream back(os.str());
  if (!(back >> again) || !Same(object, again)) std::abort();
  Exercise(object);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  RoundTrip<NCDataMatrix<float>>(bytes);
  RoundTrip<NCDataVector<float>>(bytes);
  RoundTrip<NCIntegralVector<int, -99>>(bytes);
  RoundTrip<NCIntegralVector<unsigned long, 0>>(bytes);
  RoundTrip<NCIntegralVector<bool, 0>>(bytes);
  RoundTrip<NCStringVector>(bytes);
  return 0;
}
