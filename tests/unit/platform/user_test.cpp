#include "platform/user.h"

#include "tests/unit/platform/child_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

constexpr int NOT_SET_UP = 99;

bool writeTo(const char* path, const std::string& text)
{
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    return file != -1 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

/// Makes this process root, or root of its own user namespace. Root needs none, and may have none in a
/// chroot.
bool becomeRoot()
{
    const std::string map = "0 " + std::to_string(geteuid()) + " 1";
    return geteuid() == 0 || (unshare(CLONE_NEWUSER) == 0 && writeTo("/proc/self/uid_map", map));
}

bool becomeAnother(uid_t user)
{
    return geteuid() != 0 || seteuid(user) == 0;
}

/// What a process is told, as root or as another.
int answerAs(uid_t effective)
{
    const pid_t child = fork();
    if (child == 0) {
        const bool ready = effective == 0 ? becomeRoot() : becomeAnother(effective);
        if (!ready || (geteuid() == 0) != (effective == 0))
            _exit(NOT_SET_UP);
        _exit(is_user_admin(0) * 10 + is_user_admin(2));
    }
    const int status = tests::statusOf(child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

TEST(IsUserAdmin, IsOneForRootWhateverTheArgument)
{
    EXPECT_EQ(answerAs(0), 11);
}

TEST(IsUserAdmin, IsZeroForAnotherEffectiveUser)
{
    EXPECT_EQ(answerAs(65534), 0);
}
