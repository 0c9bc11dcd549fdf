// A shared object without Qt plug-in metadata, as other libraries lying in a
// plug-in directory are.

extern "C" int vx_test_not_a_plugin()
{
    return 1;
}
