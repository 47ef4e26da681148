// What one compiler makes of the public headers, as rows of numbers next to the expected ones.

#ifndef TESTS_UNIT_PUBLIC_HEADERS_FACT_H
#define TESTS_UNIT_PUBLIC_HEADERS_FACT_H

#include <stdint.h>

typedef struct Fact {
    const char* text;   // "sizeof(PDU_ITEM)", "PDU_IT_PARAM", ...
    uint64_t actual;    // as the headers say
    uint64_t expected;  // as ISO 22900-2 says
} Fact;

#ifdef __cplusplus
extern "C" {
#endif

// The rows that the C compiler makes, static; *count receives their number.
const Fact* FactsInC(int* count);

// Declares a function pointer of every type, for the C compiler; returns how many it declared.
int FunctionPointersInC(void);

#ifdef __cplusplus
}
#endif

#endif  // TESTS_UNIT_PUBLIC_HEADERS_FACT_H
