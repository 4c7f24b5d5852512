#pragma once

#include <string>

#include "ConfigTable.h"
#include "HostConfig.h"
#include "SecretsUse.h"

namespace kvhost {

// The tables of the configuration that say how the daemon works. Each reads the fields of one table over what the
// settings say already; paths are seen from the folder of `file`, the configuration file.

void ReadRunFields(ConfigTable& fields, RunSettings& settings);
void ReadLimitFields(ConfigTable& fields, SubmissionLimits& limits);
void ReadDeliveryLogFields(ConfigTable& fields, const std::string& file, RotatedFile& log);
void ReadHttpFields(ConfigTable& fields, const std::string& file, SecretsUse secrets, HttpSettings& http);

}  // namespace kvhost
