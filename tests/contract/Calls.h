#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace kvcontract {

/// An operation that was called, and its arguments: addresses, and numbers as they are.
struct Call {
    std::string operation;
    std::vector<std::uintptr_t> arguments;

    bool operator==(const Call&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Call& call);

/// An argument as a Call has it: the address of an object, or a number.
template <typename Object>
std::uintptr_t AddressOf(const Object& object) {
    return reinterpret_cast<std::uintptr_t>(&object);
}
inline std::uintptr_t Word(const void* pointer) {
    return reinterpret_cast<std::uintptr_t>(pointer);
}
inline std::uintptr_t Word(int number) {
    return static_cast<std::uintptr_t>(number);
}

void Note(const std::string& operation, const std::vector<std::uintptr_t>& arguments = {});

/// What was noted since the last call of this.
std::vector<Call> TakeCalls();

/// Memory of an object, and its end.
void* Allocate(std::size_t size);
void Free(void* memory);

/// `Base` with a note of its end. Slot 0 leaves the memory to Free; slot 1 gives it back.
template <typename Base>
class Recording : public Base {
public:
    using Base::Base;
    ~Recording() override { Note("destroyed"); }
    static void* operator new(std::size_t size) { return Allocate(size); }
    static void operator delete(void* memory) {
        Note("freed");
        Free(memory);
    }

    /// The first operation of a derived class: it has the slot behind those of Base.
    virtual void OperationOfADerivedClass() { Note("OperationOfADerivedClass"); }
};

}  // namespace kvcontract
