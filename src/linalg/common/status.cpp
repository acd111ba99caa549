// Names of the module's result codes, for logs and test messages.
#include "linalg/common/status.h"

namespace qubor::linalg {

const char* status_name(Status s) {
  switch (s) {
    case Status::kOk: return "ok";
    case Status::kOutOfSpace: return "out of space";
    case Status::kInvalidInput: return "invalid input";
    case Status::kInternalError: return "internal error";
    case Status::kNotAnalysed: return "not analysed";
    case Status::kNotFactored: return "not factored";
  }
  return "unknown";
}

}  // namespace qubor::linalg
