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
#include <string>
#include <string_view>
#include <vector>

#include "store_support/StoreErrors.hpp"

namespace store_support {

using host::Path;
using project::metadata::MetadataWriteFailure;
using project::metadata::raise;

namespace {

constexpr const char* accessListName = "system.posix_acl_access";

constexpr mode_t permissionBits = 0777;

struct Attribute {
    std::string name;
    std::string value;
};

/// Whether an error number says that there are no attributes, or that one is gone.
bool isLack(int code) {
    return code == ENOTSUP || code == ENOSYS || code == ENODATA || isAbsence(code);
}

bool isTakenOver(std::string_view name) {
    return name == accessListName || name.substr(0, 5) == "user.";
}

/// What of `model` is taken over. Most files have none, which is a single call.
std::vector<Attribute> readAttributes(const Path& model, const Path& file) {
    const std::string name = model.accessName();
    std::string names;
    ssize_t size = llistxattr(name.c_str(), nullptr, 0);
    if (size > 0) {
        names.resize(XATTR_LIST_MAX);
        size = llistxattr(name.c_str(), names.data(), names.size());
    }
    if (size < 0 && !isLack(errno))
        raiseSystemError(file, errno);
    names.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    std::vector<Attribute> attributes;
    for (std::size_t begin = 0; begin < names.size(); begin = names.find('\0', begin) + 1) {
        const char* const attribute = names.c_str() + begin;
        if (!isTakenOver(attribute))
            continue;
        std::string value(XATTR_SIZE_MAX, '\0');
        const ssize_t length = lgetxattr(name.c_str(), attribute, value.data(), value.size());
        if (length < 0 && !isLack(errno))
            raiseSystemError(file, errno);
        if (length < 0)
            continue;
        value.resize(static_cast<std::size_t>(length));
        attributes.push_back({attribute, std::move(value)});
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

}  // namespace

void takeAttributes(const Descriptor& made, const Path& model, const struct stat& old, const Path& file) {
    struct stat own {};
    if (!made.isOpen() || fstat(made.number(), &own) != 0)
        raiseSystemError(file, errno);
    // Whoever may write in its folder may have put something else there, a name of what is not his.
    if (!S_ISREG(own.st_mode) || own.st_nlink != 1)
        raise<MetadataWriteFailure>(file.text(), u"somebody else is changing its folder just now");
    const Belonging belonging = giveAway(made, own, old);
    const std::vector<Attribute> attributes = readAttributes(model, file);
    const auto accessList = std::find_if(attributes.begin(), attributes.end(),
                                         [](const Attribute& attribute) { return attribute.name == accessListName; });
    const bool hasList = accessList != attributes.end();
    requireNoLoss(belonging, findRights(old, hasList ? accessList->value : std::string_view()), file);
    // It may have got a list from its folder.
    const ssize_t stray = hasList ? 0 : fgetxattr(made.number(), accessListName, nullptr, 0);
    if ((stray < 0 && !isLack(errno)) || (stray > 0 && fremovexattr(made.number(), accessListName) != 0))
        raiseSystemError(file, errno);
    for (const Attribute& attribute : attributes) {
        if (fsetxattr(made.number(), attribute.name.c_str(), attribute.value.data(), attribute.value.size(), 0) != 0)
            raiseSystemError(file, errno);
    }
    const bool isSame = belonging.isOfOwner && belonging.isOfGroup;
    if (fchmod(made.number(), old.st_mode & (isSame ? 07777U : permissionBits)) != 0)
        raiseSystemError(file, errno);
}

}  // namespace store_support
