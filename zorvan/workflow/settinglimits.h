#pragma once

#include "zorvan/documents/bson.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/workflow/export.h"

#include <string>

namespace prereg {

// The one judge of settings, whether they come from a file of settings, the flag store or a session.

/// What is wrong with the value of a setting, in words that follow its name ("needs a finite number"); empty when
/// nothing is.
/// @param setting  of the type that the setting has
[[nodiscard]] ZORVAN_WORKFLOW_API std::string WhatIsWrongWith(const bson::element& setting);

/// The same for the first setting that has something wrong, with its name.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string WhatIsWrongWith(const ConfigurationFPFH& config);

} // namespace prereg
