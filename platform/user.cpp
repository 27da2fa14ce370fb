#include "platform/user.h"

#include <unistd.h>

int is_user_admin(int /*mode*/)
{
    return geteuid() == 0 ? 1 : 0;
}
