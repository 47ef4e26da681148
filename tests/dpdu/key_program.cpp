// A program for the step seed-key: its first argument says how it behaves.

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

int main(int count, char** arguments) {
    const std::string mode = count > 1 ? arguments[1] : "";
    char seed[64] = "";
    if (mode == "fail") return 3;
    if (mode == "hang") std::this_thread::sleep_for(std::chrono::minutes(10));
    if (mode == "words") std::puts("no key");
    if (mode == "seed" && std::fgets(seed, sizeof seed, stdin)) std::fputs(seed, stdout);
    // The further arguments, each with its length.
    for (int i = 2; mode == "arguments" && i < count; ++i)
        std::printf("%02zX%02X", std::strlen(arguments[i]), arguments[i][0]);
    return 0;
}
