/**
 * Lets a program that runs under an emulator start others like it: what it executes runs under the
 * emulator, too. Linked into the programs of a cross-compiled build that start others.
 */
#include <spawn.h>
#include <unistd.h>

#include <vector>

extern char** environ;

namespace {

/** The arguments that run @p path under the emulator. */
std::vector<char*> emulated(const char* path, char* const* argv)
{
    // The emulator and its options, as C texts: OXIL_EMULATOR is a list of literals.
    static const char* const emulator[] = {OXIL_EMULATOR};

    std::vector<char*> arguments;
    for (const char* word : emulator) {
        arguments.push_back(const_cast<char*>(word));
    }
    arguments.push_back(const_cast<char*>(path));
    for (char* const* argument = argv + 1; *argument != nullptr; ++argument) {
        arguments.push_back(*argument);
    }
    arguments.push_back(nullptr);
    return arguments;
}

}  // namespace

extern "C" {

int execv(const char* path, char* const argv[])
{
    const std::vector<char*> arguments = emulated(path, argv);
    return execvpe(arguments[0], arguments.data(), environ);
}

int posix_spawn(pid_t* process, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const argv[], char* const environment[])
{
    const std::vector<char*> arguments = emulated(path, argv);
    return posix_spawnp(process, arguments[0], actions, attributes, arguments.data(), environment);
}

}  // extern "C"
