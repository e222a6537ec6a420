/// A shared library without plugin metadata.
extern "C" int notAPlugin()
{
    return 1;
}
