#pragma once

#include <string>

#include "ConfigTable.h"
#include "HostConfig.h"
#include "SecretsUse.h"

namespace kvhost {

/// Reads the fields of one carrier; whatever is wrong with them is noted through `fields`, and the carrier is
/// then not to be used. `givenName` is the name that the table itself gives, empty when the field "name" has
/// to.
///
/// The user and the password must not contain "}-{": the driver puts both into one key, and with these characters the
/// key of one account could be another's after a change of the configuration.
///
/// The paths of files are resolved beside `file`, and the files must be readable. A carrier that may use TLS
/// by its own choice needs a ca_file: the driver accepts no certificate without one. `retry` is what applies where the
/// carrier says nothing.
Carrier ReadCarrierFields(ConfigTable& fields, const std::string& file, const std::string& givenName,
                          const RetryPolicy& retry, SecretsUse secrets);

}  // namespace kvhost
