#pragma once

#include <ctime>
#include <deque>
#include <string>
#include <vector>

// A host that was compiled without our headers: its objects are laid out and its virtual tables filled by hand, as the
// binary contract has them. What a driver calls is noted as "log", "report" or "file", the slot, and the text.

namespace kvcontract {

/// A message file as a host has it in memory.
struct HandMadeMessageFile {
    const void* const* table;
    std::string msgFileID = "id_1";
    std::string subject = "subject";
    std::string message = "message";
    std::string jobID = "job";
    std::string recipient = "recipient";
    std::string carrierName = "carrier";
    std::string caFile = "ca";
    std::string certFile = "cert";
    std::string keyFile = "key";
    short groupInhibit1 = 1;
    short groupInhibit2 = 2;
    std::vector<std::string> attachments{"a", "b"};
    unsigned long carrierID = 3;
    bool groupInhibit = true;
    bool twoWayEnabled = false;
    bool isTwoWayQuery = true;
    bool isTwoWay = false;
    int status = 7;
    std::time_t statusTime = 4;
    bool driverFlag = false;
    bool forDeletion = true;
    std::string server = "server";
    std::string from = "from";
    std::string user = "user";
    std::string password = "password";
    int security = 2;

    HandMadeMessageFile();
    HandMadeMessageFile(const HandMadeMessageFile&) = delete;
    HandMadeMessageFile& operator=(const HandMadeMessageFile&) = delete;
};

/// A log sink with five operations.
void* HandMadeLog();
/// A report writer with one operation, which answers true.
void* HandMadeReports();

/// What a host reads of its return queue, which begins with the deque.
std::deque<void*>& FilesOfQueue(void* queue);

}  // namespace kvcontract
