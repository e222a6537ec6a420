/// What tests/sanitizers/lsan.supp says: libuvc's description of each opened device stays
/// allocated.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions()
{
    return "leak:uvc_get_device_descriptor\n";
}
