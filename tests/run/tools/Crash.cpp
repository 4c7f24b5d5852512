// Kills a running daemon many times and proves that nothing is lost.
//
//   kvrun_crash [KILLS [SEED]]
//
// Exit status 0 when all is well; otherwise the faults are on standard output.
#include <cstdio>
#include <cstdlib>

#include "run/CrashRun.h"

int main(int argc, char** argv) {
    const int kills = argc > 1 ? std::atoi(argv[1]) : 1000;
    const auto seed = static_cast<unsigned>(argc > 2 ? std::atoi(argv[2]) : 1);
    kvruntest::CrashRun run(seed);
    run.Run(kills);
    for (const std::string& fault : run.Faults()) {
        std::printf("FAULT: %s\n", fault.c_str());
    }
    std::printf("seed %u: %s\n", seed, run.Summary().c_str());
    return run.Faults().empty() ? 0 : 1;
}
