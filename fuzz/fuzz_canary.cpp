// SPDX-License-Identifier: MIT
// Holds a planted fault: writes behind a block for inputs that begin with a certain word.
#include <cstddef>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    const char word[] = "row!";
    size_t same = 0;
    while (same < size && same < sizeof(word) - 1 && data[same] == word[same])
        ++same;
    volatile unsigned char* block = static_cast<unsigned char*>(std::malloc(4));
    block[same] = 1; // behind it when all four are the same
    std::free(const_cast<unsigned char*>(block));
    return 0;
}
