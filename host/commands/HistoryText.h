#pragma once

#include <string>

#include "StoredJob.h"

namespace kvhost {

/// All that is known of a job as text for a terminal: what it is, where it stands and why, when it goes on, its
/// attempts, events and attachments, and the text of the message when that is wanted. Control characters are made
/// visible.
std::string HistoryText(const JobHistory& history, StoreTime now, bool withText);

}  // namespace kvhost
