#include "contract/Calls.h"

#include <new>
#include <utility>

namespace kvcontract {

namespace {

std::vector<Call> g_calls;

}  // namespace

std::ostream& operator<<(std::ostream& stream, const Call& call) {
    stream << call.operation << '(';
    for (const std::uintptr_t argument : call.arguments) {
        stream << ' ' << argument;
    }
    return stream << " )";
}

void Note(const std::string& operation, const std::vector<std::uintptr_t>& arguments) {
    g_calls.push_back({operation, arguments});
}

std::vector<Call> TakeCalls() {
    return std::exchange(g_calls, {});
}

void* Allocate(std::size_t size) {
    return ::operator new(size);
}

void Free(void* memory) {
    ::operator delete(memory);
}

}  // namespace kvcontract
