/* A program for the step seed-key: the key is the complement of the seed. */
#include <stdio.h>

int main(void) {
    unsigned byte;
    int count = 0;
    for (; scanf("%2x", &byte) == 1; ++count)
        printf("%02X", ~byte & 0xFF);
    printf("\n");
    return count == 0; /* without a seed there is no key */
}
