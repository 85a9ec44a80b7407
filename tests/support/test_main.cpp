#include <gtest/gtest.h>

#include "private_tmp.h"

// The cases that must end in a fault want the kernel's signal, not a sanitizer's report.
extern "C" const char *__asan_default_options()
{
    return "handle_segv=0:handle_abort=0:detect_leaks=1:allocator_may_return_null=1";
}

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests))
        test::enter_private_tmp();
    return RUN_ALL_TESTS();
}
