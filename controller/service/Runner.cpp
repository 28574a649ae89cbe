#include "controller/service/Runner.h"

#include <algorithm>
#include <utility>

namespace ixocontroller {

TRunRecordPtr TRunner::Find(std::uint64_t id) const {
  const auto record = std::ranges::find_if(FRecords, [&](const TRunRecordPtr& r) { return r->Id == id; });
  return record == FRecords.end() ? nullptr : *record;
}

void TRunner::Keep(TRunRecordPtr record) {
  for (const TEnded& told : FTold) told(record);
  FRecords.push_back(std::move(record));
  if (FRecords.size() > kKept) FRecords.pop_front();
}

}  // namespace ixocontroller
