/// What operations tell, as the command shows it. Main thread only.
#pragma once

#include "cli/text/Progress.hpp"
#include "cli/text/SafeText.hpp"
#include "cli/text/Warnings.hpp"
#include "operations/Progress.hpp"

namespace cli {

class CommandObserver : public operations::Observer {
public:
    std::unique_ptr<operations::Progress> start(const std::string& work) override {
        return std::make_unique<Progress>(escapeText(host::Path::fromAccessName(work).text()));
    }

    void useScratchFolder(const host::Path& folder) override { ignoreWarningsAbout(folder); }
};

}  // namespace cli
