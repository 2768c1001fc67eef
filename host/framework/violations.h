// Contract violations the framework notices in the driver it hosts (a dead
// handle, a request deleted while outstanding, a second read on one target...).
// They are recorded, never fatal: the offending call is refused or made
// harmless, and tests read the list. Process-wide; reset with the runtime.
#pragma once

#include <string>
#include <vector>

namespace host::framework {

void ReportViolation(std::string what);
std::vector<std::string> Violations();
void ClearViolations();

}  // namespace host::framework
