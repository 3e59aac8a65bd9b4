// For the library's tests and benchmarks only: holding the queue by marking a
// record in flight, which no application may do (the session's fields change
// only through its operations).
#pragma once

#include <memory>
#include <utility>

#include "NymbrelCore/NYBSession.h"

namespace nyb::session {

struct Testing {
  static void setProcessingRecord(NYBSession& session, std::shared_ptr<NYBRecord> record) {
    session.processingRecord_ = std::move(record);
  }
};

}  // namespace nyb::session
