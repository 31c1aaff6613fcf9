// The main program of every test. It is compiled on its own, and with it the headers that nearly every test includes.
#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv) {
    setenv("XDG_STATE_HOME", TEST_STATE_DIR, 1);  // logs that have no other place are not the developer's
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
