#include "operations/MovedFiles.hpp"

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

namespace operations {

namespace {

/// The only one of `candidates`; of several, links to one file, the only one for which `hasName` holds.
template <class HasName>
std::size_t chooseByName(const std::vector<std::size_t>& candidates, const HasName& hasName) {
    if (candidates.size() == 1)
        return candidates.front();
    const auto first = std::find_if(candidates.begin(), candidates.end(), hasName);
    const bool isOnly = first != candidates.end() && std::none_of(first + 1, candidates.end(), hasName);
    return isOnly ? *first : nowhere;
}

bool isSame(const GonePath& gone, const FileTrace& before, const ScannedFile& file) {
    const FileTrace& now = file.trace;
    if (gone.path.getPath().back().getType() != scannedTypeOf(file) || !(before.identity == now.identity))
        return false;
    if (before.born != Instant() || now.born != Instant())
        return before.born == now.born;
    return before.modified == now.modified && (gone.isFolder() || before.size == now.size);
}

class MoveSearch {
public:
    MoveSearch(const std::vector<GonePath>& gone, const std::vector<ScannedFile>& scan, std::vector<bool> isNew,
               ScanRecord& record)
        : gone_(gone), scan_(scan), isNew_(std::move(isNew)), traces_(gone.size()), targets_(gone.size(), nowhere) {
        std::transform(gone_.begin(), gone_.end(), traces_.begin(),
                       [&](const GonePath& each) { return each.isFile ? record.find(each.path) : std::nullopt; });
    }

    std::vector<std::size_t> run() {
        findByIdentity();
        findByTime();
        findByFolder();
        return std::move(targets_);
    }

private:
    void setTarget(std::size_t gone, std::size_t file) {
        targets_[gone] = file;
        isNew_[file] = false;
    }

    bool hasName(std::size_t gone, std::size_t file) const {
        return gone_[gone].path.getPath().back().getLocation() == scan_[file].name;
    }

    void findByIdentity() {
        std::multimap<FileIdentity, std::size_t> files;
        for (std::size_t i = 1; i < scan_.size(); ++i) {
            if (isNew_[i])
                files.emplace(scan_[i].trace.identity, i);
        }
        std::map<std::size_t, std::vector<std::size_t>> claims;  // by file
        for (std::size_t i = 0; i < gone_.size(); ++i) {
            if (!traces_[i])
                continue;
            const auto [first, last] = files.equal_range(traces_[i]->identity);
            std::vector<std::size_t> same;
            for (auto file = first; file != last; ++file) {
                if (isSame(gone_[i], *traces_[i], scan_[file->second]))
                    same.push_back(file->second);
            }
            if (const std::size_t file = chooseByName(same, [&](std::size_t each) { return hasName(i, each); });
                file != nowhere)
                claims[file].push_back(i);
        }
        for (const auto& [file, sources] : claims) {
            const std::size_t each = file;
            if (const std::size_t source = chooseByName(sources, [&](std::size_t gone) { return hasName(gone, each); });
                source != nowhere)
                setTarget(source, file);
        }
    }

    void findByTime() {
        using Look = std::tuple<std::u16string, std::uint64_t, std::u16string>;  // name, size, time
        std::map<Look, std::pair<std::vector<std::size_t>, std::vector<std::size_t>>> pairs;
        for (std::size_t i = 0; i < gone_.size(); ++i) {
            const GonePath& gone = gone_[i];
            if (targets_[i] != nowhere || !gone.isFile || gone.isFolder())
                continue;
            Description known;
            if (traces_[i])
                known = {traces_[i]->size, formatTime(traces_[i]->modified)};
            else if (gone.node)
                known = getDescription(*gone.node);
            if (known.size != 0 && !known.time.empty())
                pairs[{gone.path.getPath().back().getLocation(), known.size, known.time}].first.push_back(i);
        }
        if (pairs.empty())
            return;
        for (std::size_t i = 1; i < scan_.size(); ++i) {
            if (!isNew_[i] || scan_[i].kind != FileKind::file)
                continue;
            const auto found = pairs.find({scan_[i].name, scan_[i].trace.size, formatTime(scan_[i].trace.modified)});
            if (found != pairs.end())
                found->second.second.push_back(i);
        }
        for (const auto& [look, pair] : pairs) {
            if (pair.first.size() == 1 && pair.second.size() == 1)
                setTarget(pair.first.front(), pair.second.front());
        }
    }

    /// What has moved with its folder.
    void findByFolder() {
        for (std::size_t i = 0; i < gone_.size(); ++i) {
            const std::size_t above = gone_[i].parent == nowhere ? nowhere : targets_[gone_[i].parent];
            if (above == nowhere || !gone_[i].isFile || targets_[i] != nowhere)
                continue;
            const std::size_t file = findChild(scan_, above, gone_[i].path.getPath().back());
            if (file != nowhere && isNew_[file])
                setTarget(i, file);
        }
    }

    const std::vector<GonePath>& gone_;
    const std::vector<ScannedFile>& scan_;
    std::vector<bool> isNew_;  // and not found to be one of `gone_`
    std::vector<std::optional<FileTrace>> traces_;
    std::vector<std::size_t> targets_;
};

}  // namespace

std::vector<std::size_t> findMovedFiles(const std::vector<GonePath>& gone, const std::vector<ScannedFile>& scan,
                                        std::vector<bool> isNew, ScanRecord& record) {
    return MoveSearch(gone, scan, std::move(isNew), record).run();
}

}  // namespace operations
