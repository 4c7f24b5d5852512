#include "system_faults/Services.h"

#include <netdb.h>
#include <netinet/in.h>

#include <cstddef>

// The program is linked with --wrap=getservbyname_r: calls of it arrive at __wrap_getservbyname_r.

namespace {

bool g_replaced = false;
std::optional<int> g_port;

}  // namespace

extern "C" {

int __real_getservbyname_r(const char* name, const char* protocol, servent* entry, char* buffer, size_t size,
                           servent** result);

int __wrap_getservbyname_r(const char* name, const char* protocol, servent* entry, char* buffer, size_t size,
                           servent** result) {
    if (!g_replaced) {
        return __real_getservbyname_r(name, protocol, entry, buffer, size, result);
    }
    *result = nullptr;
    if (g_port) {
        *entry = servent{};
        entry->s_port = htons(static_cast<in_port_t>(*g_port));
        *result = entry;
    }
    return 0;
}
}

namespace kvtest {

ServiceLookup::ServiceLookup(std::optional<int> port) {
    g_port = port;
    g_replaced = true;
}

ServiceLookup::~ServiceLookup() {
    g_replaced = false;
}

}  // namespace kvtest
