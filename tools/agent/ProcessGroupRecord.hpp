#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace fexo::agent {

// What the agent keeps about an extension's process group, so that an agent started later can
// kill what is left of it, and only that: process ids are reused, so a group is taken as the
// recorded one only on the same boot, and, while its leader lives, with the leader's start time.
struct ProcessGroupRecord {
    pid_t group = 0;
    std::uint64_t leaderStart = 0; // clock ticks after boot (/proc/<pid>/stat)
    std::string bootId;            // /proc/sys/kernel/random/boot_id

    // The record of the group led by `leader`, a process of this user that is still there.
    static ProcessGroupRecord of(pid_t leader);

    // Sends SIGKILL to the group when it is still the recorded one; true when it was sent.
    bool killIfLeft() const;
};

} // namespace fexo::agent
