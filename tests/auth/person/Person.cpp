// Stands for the person whom the keyring's program asks for a password: the mock prompter of the library that the
// program asks people with. Prints its name on the bus, answers one question as its argument says (the password, or
// nothing for a refusal), and stays until its input ends.

#include <dlfcn.h>

#include <cstdio>

int main(int count, char** arguments)
{
    void* const library = ::dlopen("libgcr-base-3.so.1", RTLD_NOW);
    if (!library) {
        std::fprintf(stderr, "%s\n", ::dlerror());
        return 1;
    }
    const auto start = reinterpret_cast<const char* (*)()>(::dlsym(library, "gcr_mock_prompter_start"));
    const auto agree = reinterpret_cast<void (*)(const char*, const char*, ...)>(
        ::dlsym(library, "gcr_mock_prompter_expect_password_ok"));
    const auto refuse = reinterpret_cast<void (*)()>(::dlsym(library, "gcr_mock_prompter_expect_password_cancel"));
    if (!start || !agree || !refuse)
        return 1;
    std::puts(start());
    std::fflush(stdout);
    if (count > 1)
        agree(arguments[1], nullptr);
    else
        refuse();
    while (std::getchar() != EOF)
        ;
    return 0;
}
