#include "cli/text/Damage.hpp"

#include "cli/text/Output.hpp"
#include "cli/text/Warnings.hpp"

namespace cli {

SortedDamage sortDamage(const std::vector<pm::MetadataDamage>& damages) {
    SortedDamage sorted;
    for (const pm::MetadataDamage& damage : damages) {
        (damage.isForeign         ? sorted.foreign
         : damage.holdsNoMetadata ? sorted.harmless
                                  : sorted.lacking)
            .push_back(damage);
    }
    return sorted;
}

Status reportDamage(const SortedDamage& damage, const std::string& product, const host::Path& root,
                    const std::string& told) {
    Status status = Status::done;
    const auto report = [&](const std::vector<pm::MetadataDamage>& files, const std::string& what) {
        if (files.empty())
            return;
        reportError(product + what + quoted(root) + told + ": " + formatCount(keepDamage(files), "file"));
        status = Status::foundProblems;
    };
    report(damage.lacking, " lacks what is damaged in the metadata of ");
    report(damage.harmless, " lacks nothing, though files that hold no metadata are damaged in ");
    report(damage.foreign,
           " has all metadata that can be read, but lacks what files of it hold besides, such as a comment, in ");
    return status;
}

}  // namespace cli
