// Command lines: what was put into quotes comes out again, and any text is cut into arguments.
#include <vector>

#include "KvString.h"
#include "support/Check.h"
#include "support/Input.h"

namespace {

void RoundTrip(kvfuzz::Input input) {
    std::vector<std::string> arguments;
    std::string commandLine;
    while (!input.IsEmpty()) {
        arguments.push_back(input.Piece());
        commandLine += (arguments.size() % 2 == 0 ? " \t" : " ") + KvstringArgumentEncode(arguments.back());
    }
    KV_FUZZ_CHECK(BuildCommandLineArguments(commandLine) == arguments);
}

void CheckAnyText(const std::string& text) {
    std::size_t bytes = 0;
    const std::vector<std::string> arguments = BuildCommandLineArguments(text);
    for (const std::string& argument : arguments) {
        bytes += argument.size();
    }
    KV_FUZZ_CHECK(bytes <= text.size());
    KV_FUZZ_CHECK(2 * arguments.size() <= text.size() + 1);
    std::string again;
    for (const std::string& argument : arguments) {
        again += KvstringArgumentEncode(argument) + "\n";
    }
    KV_FUZZ_CHECK(BuildCommandLineArguments(again) == arguments);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    RoundTrip(kvfuzz::Input(data, size));
    CheckAnyText(kvfuzz::Input(data, size).Rest());
    return 0;
}
