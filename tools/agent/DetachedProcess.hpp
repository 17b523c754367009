#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace fexo::agent {

// Starts `argv` (the program searched in PATH) as a process of its own that outlives the agent:
// a new session, no death signal, nothing left for the agent to reap, standard input from
// /dev/null, this process's outputs. `environment` is this process's environment with every
// name in `removed` taken out and `added` put in. `workingDirectory` empty keeps this one's.
// Its id, or -1 with `failure` in words (an exec failure included).
// Thread rules: any thread.
pid_t startDetached(const std::vector<std::string>& argv, const std::map<std::string, std::string>& added,
                    const std::vector<std::string>& removed, const std::string& workingDirectory, std::string& failure);

} // namespace fexo::agent
