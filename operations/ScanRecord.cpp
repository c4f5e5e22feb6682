// The file is a heading, which names the metadata folder; the project's root folder, and the device that it was on; the
// number of fingerprints, and for each the key of its path and itself; and for each path that was described the key and
// the numbers of its trace. Before each text stands the number of its units. All of that is as it is in the memory of
// this machine.
//
// The number in the heading is another one if this is written in another way, and if a scan describes files otherwise:
// then there is something to do in folders in which there was not.

#include "operations/ScanRecord.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>

#include "host/FileUtils.hpp"
#include "operations/FileOutput.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "store_support/Disk.hpp"

namespace operations {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view start = "project-metadata scan 3\n";

/// The user's folder for states; empty if there is none.
host::Path findStateFolder() {
    const char* const folder = secure_getenv("XDG_STATE_HOME");
    if (folder && *folder == '/')
        return host::Path::fromAccessName(folder);
    const char* const home = secure_getenv("HOME");
    return home && *home == '/' ? host::Path::fromAccessName(home) / u".local/state" : host::Path();
}

/// FNV-1a, in hexadecimal digits: a name of bounded length for a text of any.
std::string makeName(const std::string& text) {
    std::uint64_t number = 0xcbf29ce484222325;
    for (const char byte : text)
        number = (number ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
    char digits[17];
    std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(number));
    return digits;
}

/// The numbers of a trace, in the order in which they are written.
template <class Trace, class Visit>
void visitNumbers(Trace& trace, const Visit& visit) {
    visit(trace.identity.device);
    visit(trace.identity.inode);
    visit(trace.born.first);
    visit(trace.born.second);
    visit(trace.modified.first);
    visit(trace.modified.second);
    visit(trace.size);
}

template <class Number>
void putNumber(std::string& bytes, const Number& number) {
    bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
}

template <class Text>
void putText(std::string& bytes, const Text& text) {
    putNumber(bytes, static_cast<std::uint32_t>(text.size()));
    bytes.append(reinterpret_cast<const char*>(text.data()), text.size() * sizeof text[0]);
}

void putTrace(std::string& bytes, const std::u16string& key, const FileTrace& trace) {
    putText(bytes, key);
    visitNumbers(trace, [&](const auto& number) { putNumber(bytes, number); });
}

/// Takes from `bytes` what was put there, until there is nothing more or it is no record.
class Taker {
public:
    Taker(const std::string& bytes, std::size_t place) : bytes_(bytes), place_(place) {}

    std::size_t place() const noexcept { return place_; }
    bool isGood() const noexcept { return isGood_; }
    bool hasMore() const noexcept { return isGood_ && place_ < bytes_.size(); }

    template <class Number>
    void takeNumber(Number& number) {
        take(&number, sizeof number);
    }

    template <class Text>
    Text takeText() {
        std::uint32_t size = 0;
        takeNumber(size);
        isGood_ = isGood_ && size <= (bytes_.size() - place_) / sizeof(typename Text::value_type);
        Text text(isGood_ ? size : 0, {});
        take(text.data(), text.size() * sizeof(typename Text::value_type));
        return text;
    }

private:
    void take(void* target, std::size_t size) {
        isGood_ = isGood_ && size <= bytes_.size() - place_;
        if (!isGood_)
            return;
        std::memcpy(target, bytes_.data() + place_, size);
        place_ += size;
    }

    const std::string& bytes_;
    std::size_t place_;
    bool isGood_ = true;
};

/// Makes `key` that of `path`; what it was before saves memory from being asked for.
void fillKey(std::u16string& key, const pm::MetadataPath& path) {
    key.clear();
    for (const pm::PathElement& step : path.getPath())
        key.append(step.getType()).append(1, u'\0').append(step.getLocation()).append(1, u'\0');
}

/// Whether there is no folder `root` any more on the disk `device`, which is there: so is the folder above.
bool isGone(const fs::path& root, std::uint64_t device) {
    struct stat status {};
    fs::path left = root;
    while (stat(left.c_str(), &status) != 0) {
        if ((errno != ENOENT && errno != ENOTDIR) || !left.has_relative_path())
            return false;
        left = left.parent_path();
    }
    return left != root && status.st_dev == device;
}

/// Removes the records of projects that are gone from `folder`.
void removeGone(const fs::path& folder) {
    std::error_code error;
    for (fs::directory_iterator entry(folder, error); !error && entry != fs::end(entry); entry.increment(error)) {
        std::error_code unknown;
        if (!fs::is_regular_file(entry->symlink_status(unknown)))
            continue;
        std::string bytes(std::size_t{1} << 14U, '\0');
        std::ifstream stream(entry->path(), std::ios::binary);
        stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        bytes.resize(static_cast<std::size_t>(stream.gcount()));
        Taker taker(bytes, std::min(start.size(), bytes.size()));
        const auto place = taker.takeText<std::string>();
        const auto root = taker.takeText<std::string>();
        std::uint64_t device = 0;
        taker.takeNumber(device);
        const bool isRecord =
            taker.isGood() && bytes.compare(0, start.size(), start) == 0 && entry->path().filename() == makeName(place);
        if (isRecord && isGone(root, device))
            fs::remove(entry->path(), unknown);
    }
}

}  // namespace

ScanRecord::ScanRecord(const host::Path& root, const host::Path& folder) : heading_(start) {
    const std::string place = host::FileUtils::followLink(host::FileUtils::makeAbsolute(folder)).accessName();
    putText(heading_, place);
    std::error_code unknown;
    putText(project_, fs::canonical(root.accessName(), unknown).native());
    putNumber(project_, FileIdentity::of(root).value_or(FileIdentity()).device);
    const host::Path states = findStateFolder();
    if (states.empty())
        return;
    file_ = states / u"project-metadata/scans" / host::Path::fromAccessName(makeName(place));
    try {
        constexpr std::size_t maximumSize = std::size_t{1} << 30U;
        bytes_ = store_support::readRegularFile(file_, maximumSize).value_or("");
    } catch (const pm::MetadataReadFailure&) {
        // It is a hint only.
    }
    if (bytes_.compare(0, heading_.size(), heading_) != 0)
        bytes_.clear();
    parseFingerprints();
}

void ScanRecord::parseFingerprints() {
    if (bytes_.empty())
        return;
    Taker taker(bytes_, heading_.size());
    taker.takeText<std::string>();
    std::uint64_t device = 0;
    taker.takeNumber(device);
    std::uint32_t count = 0;
    taker.takeNumber(count);
    for (; count > 0 && taker.isGood(); --count) {
        auto key = taker.takeText<std::u16string>();
        auto fingerprint = taker.takeText<std::string>();
        if (taker.isGood())
            fingerprints_.insert_or_assign(std::move(key), std::move(fingerprint));
    }
    tracesBegin_ = taker.isGood() ? taker.place() : bytes_.size();
}

void ScanRecord::parseTraces() {
    if (traces_)
        return;
    traces_.emplace();
    for (Taker taker(bytes_, tracesBegin_); taker.hasMore();) {
        auto key = taker.takeText<std::u16string>();
        FileTrace trace;
        visitNumbers(trace, [&](auto& number) { taker.takeNumber(number); });
        if (taker.isGood())
            traces_->insert_or_assign(std::move(key), trace);
    }
}

std::optional<FileTrace> ScanRecord::find(const pm::MetadataPath& path) {
    parseTraces();
    const auto found = traces_->find(makeKey(path));
    return found == traces_->end() ? std::nullopt : std::optional(found->second);
}

const std::string& ScanRecord::findFingerprint(const pm::MetadataPath& path) const {
    static const std::string& none = *new std::string();
    const auto found = fingerprints_.find(makeKey(path));
    return found == fingerprints_.end() ? none : found->second;
}

void ScanRecord::keep(const Traces& traces, const Fingerprints& fingerprints,
                      const std::function<bool(const std::u16string& key)>& isOfInterest) {
    if (file_.empty())
        return;
    std::map<std::u16string, std::string> known;
    for (const auto& [path, fingerprint] : fingerprints)
        known.emplace(makeKey(path), fingerprint);
    std::copy_if(fingerprints_.begin(), fingerprints_.end(), std::inserter(known, known.end()),
                 [&](const auto& entry) { return isOfInterest(entry.first); });
    std::string bytes = heading_ + project_;
    bytes.reserve(bytes_.size());
    putNumber(bytes, static_cast<std::uint32_t>(known.size()));
    for (const auto& [folder, fingerprint] : known) {
        putText(bytes, folder);
        putText(bytes, fingerprint);
    }
    std::u16string key;
    for (const auto& [path, trace] : traces) {
        fillKey(key, path);
        putTrace(bytes, key, trace);
    }
    if (bytes == bytes_)
        return;
    parseTraces();
    for (const auto& [path, trace] : traces)
        traces_->erase(makeKey(path));
    for (const auto& [other, trace] : *traces_) {
        if (isOfInterest(other))
            putTrace(bytes, other, trace);
    }
    if (bytes == bytes_)
        return;
    pm::makeFolder(pm::getParentFolder(file_));
    replaceFile(file_, bytes);
    removeGone(pm::getParentFolder(file_).accessName());
}

std::u16string ScanRecord::makeKey(const pm::MetadataPath& path) {
    std::u16string key;
    fillKey(key, path);
    return key;
}

}  // namespace operations
