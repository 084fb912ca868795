// libx265 loses some kilobytes of its own with every encoder that it closes.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:libx265\n";
}
