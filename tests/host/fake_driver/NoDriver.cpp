// A library that loads and exports neither of the two functions of a driver.
extern "C" __attribute__((visibility("default"))) int KvHostTestNothing() {
    return 0;
}
