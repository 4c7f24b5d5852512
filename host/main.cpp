#include "CommandLine.h"

int main(int argc, char** argv) {
    return kvhost::RunCommandLine(argc, argv);
}
