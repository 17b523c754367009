#include <agent/ProcessGroupRecord.hpp>

#include <signal.h>

#include <fstream>
#include <sstream>

namespace fexo::agent {

namespace {

// Read once: it lasts as long as the boot, and every push's record carries it.
const std::string& currentBootId()
{
    static const std::string id = [] {
        std::ifstream file("/proc/sys/kernel/random/boot_id");
        std::string line;
        std::getline(file, line);
        return line;
    }();
    return id;
}

// Field 22 of /proc/<pid>/stat, after the command name (which may hold blanks and parentheses).
std::uint64_t startTime(pid_t pid)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const auto end = text.rfind(')');
    if (end == std::string::npos) return 0;
    std::istringstream fields(text.substr(end + 2));
    std::string field;
    for (int index = 3; index <= 22 && fields >> field; ++index)
        if (index == 22) return std::stoull(field);
    return 0;
}

} // namespace

ProcessGroupRecord ProcessGroupRecord::of(pid_t leader)
{
    return {leader, startTime(leader), currentBootId()};
}

bool ProcessGroupRecord::killIfLeft() const
{
    if (group <= 1 || bootId.empty() || bootId != currentBootId()) return false;
    // A leader with another start time is a new process that reuses the id. The id of a group
    // whose leader is gone is not reused while a member is left, so what is left under it is
    // taken as ours (another group of that id would need its own leader to have come and gone
    // since).
    const auto leaderStartNow = startTime(group);
    if (leaderStartNow != 0 && leaderStartNow != leaderStart) return false;
    return ::kill(-group, SIGKILL) == 0;
}

} // namespace fexo::agent
