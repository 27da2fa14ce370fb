/// Rights of the caller.
#pragma once

/// 1 when the process runs with the effective user id 0, else 0. The argument is the product's own.
int is_user_admin(int mode);
