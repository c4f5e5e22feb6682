/// Asking git. Main thread only.
#pragma once

#include <string>
#include <vector>

namespace operations {

struct GitOutcome {
    int status;         ///< with which git ended; 128 for its own errors
    std::string out;    ///< what it printed, byte for byte
    std::string error;  ///< what it complained of, in one line
};

/// Runs git in `folder`, in English, and waits for its end. Of the environment, what names another repository is left
/// out, as hooks have it. Whatever the repository's configuration says, git connects to nobody and asks no monitor of
/// the file system, which is a program that the configuration names: the repository may be a stranger's.
/// @param input the file that git reads as its standard input
/// @throws OperationError if git cannot be started
GitOutcome runGit(const std::string& folder, std::vector<std::string> arguments,
                  const std::string& input = "/dev/null");

}  // namespace operations
