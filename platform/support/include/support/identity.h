// Becoming the login user.
#pragma once

#include <sys/types.h>

// Switches the whole process to the user: real, effective and saved ids and the
// supplementary groups, and makes the user's state folder first. Succeeds
// without doing anything when the process already is that user; anything else
// needs root. `sessionId` is not used. 0 on success, negative with errno and
// WfmLibGetErr set. There is no way back.
int WfmLibUGIDSet(const char* sessionId, const char* userName);

// Sets the process's umask to 022 and returns the previous one.
unsigned int WfmLibUmask();
// Sets the umask to one that WfmLibUmask returned.
void WfmLibRestoreUmask(unsigned int mask);
