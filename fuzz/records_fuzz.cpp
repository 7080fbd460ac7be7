// Feeds arbitrary bytes to the readers of the variable (quantitative, qualitative, date-time)
// and observation records and of the selected labels, directly and polymorphically (a
// registered class name, then the record, as the containers store them), and to the readers
// of the variable and observation containers; observation records also from inside a
// directory entry. Whatever reads must write and read back to the
// same bytes: no crash, no hang, no allocation beyond what the input's size justifies.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>

#include "FuzzRoundTrip.h"
#include "ncds/ncds.h"

namespace {

using ncds::fuzz::Bytes;
using ncds::fuzz::RoundTrip;

template <class T>
void RoundTrip(const std::string& bytes) {
  T object;
  T again;
  RoundTrip(bytes, object, again);
}

// Containers also answer lookups by user ID over whatever they read: every record's primary
// ID finds a record with that ID (the one with the smallest unique ID when several share it).
template <class T>
void Container(const std::string& bytes) {
  T container;
  T again;
  RoundTrip(bytes, container, again);
  const boost::shared_ptr<InfosByUserID> lookup = container.GetInfosByUserID(1);
  for (const auto& record : container) {
    const std::string& id = record.second->GetUserID(1);
    if (id.empty()) continue;
    const VarObsInfo* found = lookup->GetInfo(id);
    if (!found || VxStdString::CompareNoCase(found->GetUserID(1), id) != 0 ||
        found->GetUniqueID() > record.first) {
      std::abort();
    }
  }
}

// Records inside a directory entry may be decoded from its buffer rather than through the
// streams: both ways must agree on whether the bytes read and on what they read.
template <class T>
void BothWays(const std::string& bytes) {
  T direct;
  std::istringstream plain(bytes);
  const bool directOk = static_cast<bool>(plain >> direct);

  std::ostringstream wrapped;
  {
    OutputStreamDirectory directory(wrapped, 1);
    directory.GetOutput(0).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
  std::istringstream is(wrapped.str());
  InputStreamDirectory directory(is);
  std::istream* entry = directory.GetInput(0);
  T windowed;
  const bool windowedOk = entry && static_cast<bool>(*entry >> windowed);
  if (directOk != windowedOk || (directOk && Bytes(direct) != Bytes(windowed))) std::abort();
}

void Polymorphic(const std::string& bytes) {
  std::istringstream is(bytes);
  std::string name;
  try {
    ReadBinaryString(name, is);
  } catch (const VxStreamError&) {
    return;
  }
  const auto* factory = OBJCREAT_Details::FactoryRepositoryBase::Instance().GetFactory(name);
  if (!factory) return;
  const std::unique_ptr<VStreamBase> object = factory->Create();
  const std::unique_ptr<VStreamBase> again = factory->Create();
  RoundTrip(bytes.substr(static_cast<std::size_t>(is.tellg())), *object, *again);
  if (auto* variable = dynamic_cast<VariableInfo*>(object.get())) {
    // Text and values of whatever kind was read.
    const float value = variable->Encode(variable->GetUserID(1).c_str());
    (void)variable->Decode(value);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  RoundTrip<VarObsInfo>(bytes);
  RoundTrip<QuantitativeVariableInfo>(bytes);
  RoundTrip<QualitativeVariableInfo>(bytes);
  RoundTrip<DateTimeVariableInfo>(bytes);
  RoundTrip<ObservationInfo>(bytes);
  BothWays<ObservationInfo>(bytes);
  RoundTrip<SelectedLabel>(bytes);
  Container<NCVariables>(bytes);
  Container<NCObservations>(bytes);
  Polymorphic(bytes);
  return 0;
}
