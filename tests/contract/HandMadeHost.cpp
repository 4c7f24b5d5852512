#include "contract/HandMadeHost.h"

#include <array>

#include "contract/Calls.h"

namespace kvcontract {

namespace {

template <typename Function>
const void* Entry(Function* function) {
    return reinterpret_cast<const void*>(function);
}

template <int Slot>
void Log(void*, const std::string& text, int line, const char* file) {
    Note("log " + std::to_string(Slot) + " " + text + " " + file, {Word(line)});
}

bool WriteReport(void*, void* file, int status, const std::string& text) {
    Note("report 0 " + text, {Word(file), Word(status)});
    return true;
}

template <int Slot>
void SetText(void* file, const std::string& text) {
    Note("file " + std::to_string(Slot) + " " + text, {Word(file)});
}

const std::array<const void*, 5> kLogTable{Entry(Log<0>), Entry(Log<1>), Entry(Log<2>), Entry(Log<3>),
                                           Entry(Log<4>)};
const std::array<const void*, 1> kReportsTable{Entry(WriteReport)};
// A driver never destroys a message file: the slots of the destructor are empty.
const std::array<const void*, 4> kFileTable{nullptr, nullptr, Entry(SetText<2>), Entry(SetText<3>)};

}  // namespace

HandMadeMessageFile::HandMadeMessageFile() : table(kFileTable.data()) {}

void* HandMadeLog() {
    static const void* const* object = kLogTable.data();
    return &object;
}

void* HandMadeReports() {
    static const void* const* object = kReportsTable.data();
    return &object;
}

std::deque<void*>& FilesOfQueue(void* queue) {
    return *static_cast<std::deque<void*>*>(queue);
}

}  // namespace kvcontract
