#include <cstdio>

int main() {
    std::puts("keel");
    return 0;
}
