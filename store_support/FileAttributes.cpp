#include "store_support/FileAttributes.hpp"

#include <endian.h>
#include <linux/limits.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "store_support/StoreErrors.hpp"

namespace store_support {

using host::Path;
using project::metadata::MetadataWriteFailure;
using project::metadata::raise;

namespace {

constexpr const char* accessListName = "system.posix_acl_access";

struct Attributes {
    std::string accessList;  ///< empty if there is none
    std::vector<std::pair<std::string, std::string>> ofUser;
};

/// Whether an error number says that there are no attributes, or that one is gone.
bool isLack(int code) {
    return code == ENOTSUP || code == ENOSYS || code == ENODATA || isAbsence(code);
}

/// The names of the attributes of `place`, each with a zero byte. Most files have none, which is a single call.
std::string listAttributes(const std::string& place, const Path& file) {
    std::string names;
    ssize_t size = llistxattr(place.c_str(), nullptr, 0);
    if (size > 0) {
        names.resize(XATTR_LIST_MAX);
        size = llistxattr(place.c_str(), names.data(), names.size());
    }
    if (size < 0 && !isLack(errno))
        raiseSystemError(file, errno);
    names.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return names;
}

/// @return no value if `place` has no attribute `name`
std::optional<std::string> readAttribute(const std::string& place, const char* name, const Path& file) {
    std::string value(XATTR_SIZE_MAX, '\0');
    const ssize_t size = lgetxattr(place.c_str(), name, value.data(), value.size());
    if (size < 0 && isLack(errno))
        return std::nullopt;
    if (size < 0)
        raiseSystemError(file, errno);
    value.resize(static_cast<std::size_t>(size));
    return value;
}

Attributes readAttributes(const std::string& place, const Path& file) {
    Attributes attributes;
    const std::string names = listAttributes(place, file);
    for (std::size_t begin = 0; begin < names.size(); begin = names.find('\0', begin) + 1) {
        const std::string name = names.c_str() + begin;
        const bool isAccessList = name == accessListName;
        if (!isAccessList && name.rfind("user.", 0) != 0)
            continue;
        auto value = readAttribute(place, name.c_str(), file);
        if (value && isAccessList)
            attributes.accessList = std::move(*value);
        else if (value)
            attributes.ofUser.emplace_back(name, std::move(*value));
    }
    return attributes;
}

/// What a file lets people do, in the three bits of a mode.
struct Rights {
    unsigned owner;
    unsigned group;
    unsigned others;
    unsigned ownerByName;  ///< of its owner, were it somebody else's
};

/// @param accessList empty if there is none
Rights findRights(const struct stat& status, std::string_view accessList) {
    const unsigned group = status.st_mode >> 3U & 7U;
    Rights rights{status.st_mode >> 6U & 7U, group, status.st_mode & 7U, 0};
    for (std::size_t i = sizeof(posix_acl_xattr_header); i < accessList.size(); i += sizeof(posix_acl_xattr_entry)) {
        posix_acl_xattr_entry entry{};
        std::memcpy(&entry, accessList.data() + i, std::min(sizeof entry, accessList.size() - i));
        // Where there is a list, the bits of the group are those that it gives at most.
        const unsigned given = le16toh(entry.e_perm) & group;
        if (le16toh(entry.e_tag) == ACL_GROUP_OBJ)
            rights.group = given;
        else if (le16toh(entry.e_tag) == ACL_USER && le32toh(entry.e_id) == status.st_uid)
            rights.ownerByName = given;
    }
    return rights;
}

/// What a file has kept of another one.
struct Belonging {
    bool isOfOwner;
    bool isOfGroup;
};

/// @param own the status of `made`
Belonging giveAway(const Descriptor& made, const struct stat& own, const struct stat& old) {
    Belonging belonging{own.st_uid == old.st_uid, own.st_gid == old.st_gid};
    if (belonging.isOfOwner && belonging.isOfGroup)
        return belonging;
    if (fchown(made.number(), old.st_uid, old.st_gid) == 0)
        return {true, true};
    if (!belonging.isOfGroup)
        belonging.isOfGroup = fchown(made.number(), static_cast<uid_t>(-1), old.st_gid) == 0;
    return belonging;
}

void requireNoLoss(const Belonging& belonging, const Rights& rights, const Path& file) {
    if (!belonging.isOfGroup && rights.group != rights.others)
        raise<MetadataWriteFailure>(file.text(), u"its group cannot be kept, since this user is not in it");
    constexpr unsigned readAndWrite = 6;
    const unsigned left = rights.others | rights.ownerByName | (belonging.isOfGroup ? rights.group : 0U);
    if (!belonging.isOfOwner && (rights.owner & readAndWrite & ~left) != 0)
        raise<MetadataWriteFailure>(file.text(), u"its owner is another user, who would have no access any more");
}

/// Gives `made` the access list `list`; none if that is empty, though it may have got one from its folder.
/// @return whether that succeeded; errno says why not
bool setAccessList(const Descriptor& made, const std::string& list) {
    if (!list.empty())
        return fsetxattr(made.number(), accessListName, list.data(), list.size(), 0) == 0;
    const ssize_t size = fgetxattr(made.number(), accessListName, nullptr, 0);
    return size < 0 ? isLack(errno) : size == 0 || fremovexattr(made.number(), accessListName) == 0;
}

/// The status of what was made under the name `file`. Whoever may write in its folder may have put something else
/// there, a name of what is not his.
struct stat examine(const Descriptor& made, const Path& file) {
    struct stat status {};
    if (!made.isOpen() || fstat(made.number(), &status) != 0)
        raiseSystemError(file, errno);
    if (!S_ISDIR(status.st_mode) && !(S_ISREG(status.st_mode) && status.st_nlink == 1))
        raise<MetadataWriteFailure>(file.text(), u"somebody else is changing its folder just now");
    return status;
}

}  // namespace

void takeAttributes(const Descriptor& made, const Path& model, const struct stat& old, const Path& file) {
    const Belonging belonging = giveAway(made, examine(made, file), old);
    const Attributes attributes = readAttributes(model.accessName(), file);
    requireNoLoss(belonging, findRights(old, attributes.accessList), file);
    if (!setAccessList(made, attributes.accessList))
        raiseSystemError(file, errno);
    for (const auto& [name, value] : attributes.ofUser) {
        if (fsetxattr(made.number(), name.c_str(), value.data(), value.size(), 0) != 0)
            raiseSystemError(file, errno);
    }
    const bool isSame = belonging.isOfOwner && belonging.isOfGroup;
    if (fchmod(made.number(), old.st_mode & (isSame ? 07777U : 0777U)) != 0)
        raiseSystemError(file, errno);
}

void share(const Path& made, const Path& folder) {
    const Descriptor descriptor(made.accessName(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    const struct stat own = examine(descriptor, made);
    // It may be a symbolic link.
    const std::string place = folder.accessName() + "/.";
    struct stat model {};
    if (lstat(place.c_str(), &model) != 0)
        raiseSystemError(folder, errno);
    const bool isOfGroup = giveAway(descriptor, own, model).isOfGroup;
    mode_t mode = S_ISDIR(own.st_mode) ? (model.st_mode & 03777U) | 0700U : (model.st_mode & 0666U) | 0600U;
    if (!isOfGroup)
        mode = (mode & ~070U) | (mode & 07U) << 3U;
    // Where this fails, others wait for the end of the change, or for somebody who may complete it.
    if (isOfGroup)
        static_cast<void>(
            setAccessList(descriptor, readAttribute(place, accessListName, folder).value_or(std::string())));
    static_cast<void>(fchmod(descriptor.number(), mode) == 0);
}

}  // namespace store_support
