// A shared library without package entry points: the host must refuse it with a warning.
extern "C" int vxtest_not_a_package()
{
    return 42;
}
