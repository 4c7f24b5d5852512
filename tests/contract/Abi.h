#pragma once

#include <cstddef>
#include <cstring>

// How the compiled code of a host meets ours on x86-64 and 32-bit x86 (Itanium C++ ABI): where a data member lies, and
// which entry of the virtual table an operation has. A class with a virtual destructor has it in the first two slots:
// slot 0 destroys the object, slot 1 destroys and frees it.

namespace kvcontract {

/// The number for the architecture that is compiled for.
constexpr std::size_t PerAbi([[maybe_unused]] std::size_t x86_64, [[maybe_unused]] std::size_t i386) {
#if defined(__i386__)
    return i386;
#elif defined(__x86_64__)
    return x86_64;
#else
#error "the binary contract is pinned for x86-64 and 32-bit x86"
#endif
}

/// Where a data member lies in its object; a pointer to a data member is that number.
template <typename Class, typename Member>
std::size_t OffsetOf(Member Class::*member) {
    static_assert(sizeof(member) == sizeof(std::ptrdiff_t));
    std::ptrdiff_t offset;
    std::memcpy(&offset, &member, sizeof(offset));
    return static_cast<std::size_t>(offset);
}

/// Defines OffsetOf(Tag) for a member that is not public: the arguments of an explicit instantiation are exempt from
/// access control.
template <typename Tag, auto Member>
struct MemberExposer {
    friend std::size_t OffsetOf(Tag) { return OffsetOf(Member); }
};

/// Calls the operation in slot `slot` of the virtual table of `object`, as a host's compiled code does. The argument
/// types are those of the declaration, references included.
template <typename Result, typename... Arguments>
Result CallSlot(void* object, std::size_t slot, Arguments... arguments) {
    using Function = Result (*)(void*, Arguments...);
    void** const table = *static_cast<void***>(object);
    return reinterpret_cast<Function>(table[slot])(object, static_cast<Arguments>(arguments)...);
}

}  // namespace kvcontract

/// Makes `Class_member` a tag for OffsetOf. Use it within the namespace kvcontract.
#define KV_EXPOSE(Class, member)                       \
    struct Class##_##member {                          \
        friend std::size_t OffsetOf(Class##_##member); \
    };                                                 \
    template struct MemberExposer<Class##_##member, &Class::member>
