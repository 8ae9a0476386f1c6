#pragma once

#include <string>
#include <vector>

#include "dme/diagnostics.h"

namespace dme {
namespace test {

// Routes the library's diagnostics into `reports` for its lifetime, then restores the handler
// it replaced.
class RecordedDiagnostics {
  public:
    RecordedDiagnostics()
        : previous_(
              setDiagnosticHandler([this](const std::string& text) { reports.push_back(text); })) {}
    ~RecordedDiagnostics() { setDiagnosticHandler(previous_); }
    RecordedDiagnostics(const RecordedDiagnostics&) = delete;
    RecordedDiagnostics& operator=(const RecordedDiagnostics&) = delete;

    std::vector<std::string> reports;

  private:
    DiagnosticHandler previous_;
};

}  // namespace test
}  // namespace dme
