// The main program of every test. It is compiled on its own, and with it the headers that nearly every test includes.
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
