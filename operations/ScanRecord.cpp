// The file is a heading, which names the metadata folder, and for each path the number of units in its key, the key,
// and the numbers of its trace. All of that is as it is in the memory of this machine.

#include "operations/ScanRecord.hpp"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "host/FileUtils.hpp"
#include "operations/FileOutput.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "store_support/Disk.hpp"

namespace operations {

namespace {

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

void append(std::string& bytes, const std::u16string& key, const FileTrace& trace) {
    const auto put = [&](const auto& number) { bytes.append(reinterpret_cast<const char*>(&number), sizeof number); };
    put(static_cast<std::uint32_t>(key.size()));
    bytes.append(reinterpret_cast<const char*>(key.data()), key.size() * sizeof(char16_t));
    visitNumbers(trace, put);
}

}  // namespace

ScanRecord::ScanRecord(const host::Path& folder) {
    const std::string place = host::FileUtils::followLink(host::FileUtils::makeAbsolute(folder)).accessName();
    heading_ = "project-metadata scan 1\n" + place + '\n';
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
}

void ScanRecord::parse() {
    if (traces_)
        return;
    traces_.emplace();
    std::size_t place = heading_.size();
    bool isGood = !bytes_.empty();
    const auto get = [&](void* target, std::size_t size) {
        isGood = isGood && size <= bytes_.size() - place;
        if (isGood)
            std::memcpy(target, bytes_.data() + place, size);
        place += isGood ? size : 0;
    };
    while (isGood && place < bytes_.size()) {
        std::uint32_t units = 0;
        get(&units, sizeof units);
        isGood = isGood && units <= (bytes_.size() - place) / sizeof(char16_t);
        std::u16string key(isGood ? units : 0, u'\0');
        get(key.data(), key.size() * sizeof(char16_t));
        FileTrace trace;
        visitNumbers(trace, [&](auto& number) { get(&number, sizeof number); });
        if (isGood)
            traces_->insert_or_assign(std::move(key), trace);
    }
}

std::optional<FileTrace> ScanRecord::find(const pm::MetadataPath& path) {
    parse();
    const auto found = traces_->find(makeKey(path));
    return found == traces_->end() ? std::nullopt : std::optional(found->second);
}

void ScanRecord::keep(const Traces& traces, const std::function<bool(const std::u16string& key)>& isOfInterest) {
    if (file_.empty())
        return;
    std::string bytes = heading_;
    for (const auto& [path, trace] : traces)
        append(bytes, makeKey(path), trace);
    if (bytes == bytes_)
        return;
    parse();
    for (const auto& [path, trace] : traces)
        traces_->erase(makeKey(path));
    for (const auto& [key, trace] : *traces_) {
        if (isOfInterest(key))
            append(bytes, key, trace);
    }
    if (bytes == bytes_)
        return;
    pm::makeFolder(pm::getParentFolder(file_));
    replaceFile(file_, bytes);
}

std::u16string ScanRecord::makeKey(const pm::MetadataPath& path) {
    std::u16string key;
    for (const pm::PathElement& step : path.getPath())
        key.append(step.getType()).append(1, u'\0').append(step.getLocation()).append(1, u'\0');
    return key;
}

}  // namespace operations
