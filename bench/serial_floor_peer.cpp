// The other end of the serial floor: sends back what it reads from its standard input.

#include <unistd.h>

#include <cstddef>

int main() {
    char bytes[4096];
    for (;;) {
        const ssize_t got = ::read(STDIN_FILENO, bytes, sizeof bytes);
        if (got <= 0) return 0;
        for (ssize_t sent = 0; sent < got;) {
            const ssize_t put =
                ::write(STDIN_FILENO, bytes + sent, static_cast<std::size_t>(got - sent));
            if (put <= 0) return 1;
            sent += put;
        }
    }
}
