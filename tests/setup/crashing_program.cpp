// Crashes if it has an argument.
int main(int count, char**) {
    volatile int* const nothing = nullptr;
    if (count > 1) *nothing = 1;
    return 0;
}
