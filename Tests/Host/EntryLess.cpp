// A module without the function that a host looks for.
extern "C" __attribute__((visibility("default"))) int OtherEntry() {
    return 0;
}
