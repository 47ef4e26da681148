#pragma once

// The corpora of fuzz targets, replayed as ordinary tests: one case for each file. A target ends
// the process if a requirement does not hold.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace tarvik::fuzz {

struct CorpusTarget {
    const char* name;
    const char* corpus;                // its folder
    int (*initialize)(int*, char***);  // null: none
    int (*run)(const std::uint8_t* data, std::size_t size);
};

// Makes a test case of each file. False: there is none.
bool AddCorpus(const CorpusTarget& target);

}  // namespace tarvik::fuzz

// For the list of targets that the build writes. Each target's functions have been renamed.
#define TARVIK_CORPUS(name, corpus)                                                 \
    extern "C" int name##_TestOneInput(const std::uint8_t* data, std::size_t size); \
    static const bool name##_added =                                                \
        tarvik::fuzz::AddCorpus({#name, corpus, nullptr, name##_TestOneInput});
#define TARVIK_CORPUS_WITH_INITIALIZER(name, corpus)                                \
    extern "C" int name##_Initialize(int*, char***);                                \
    extern "C" int name##_TestOneInput(const std::uint8_t* data, std::size_t size); \
    static const bool name##_added =                                                \
        tarvik::fuzz::AddCorpus({#name, corpus, name##_Initialize, name##_TestOneInput});
