#pragma once

#include "ConfigTable.h"
#include "RetryPolicy.h"

namespace kvhost {

/// Reads the fields of a table "retry" over what `policy` says already.
void ReadRetryFields(ConfigTable& fields, RetryPolicy& policy);

}  // namespace kvhost
