#include "operations/SettingsOverride.hpp"

#include <utility>

namespace operations {

namespace {

struct Replacement {
    std::string group;
    std::string key;
    std::u16string value;
};

/// A group of settings, or the root of all groups under the name "", with the replacement laid over it.
class Overlay : public host::SettingsGroup {
public:
    /// @param below what shows through; null for nothing
    Overlay(std::shared_ptr<const host::SettingsGroup> below, std::string name, Replacement replacement)
        : below_(std::move(below)), name_(std::move(name)), replacement_(std::move(replacement)) {}

    std::shared_ptr<const host::SettingsGroup> getGroup(const std::string& fullName) const override {
        return std::make_shared<Overlay>(below_ ? below_->getGroup(fullName) : nullptr, fullName, replacement_);
    }

    std::u16string getText(const std::string& key, const std::string& qualifier) const override {
        if (name_ == replacement_.group && key == replacement_.key)
            return replacement_.value;
        return below_ ? below_->getText(key, qualifier) : u"";
    }

private:
    std::shared_ptr<const host::SettingsGroup> below_;
    std::string name_;
    Replacement replacement_;
};

}  // namespace

SettingsOverride::SettingsOverride(const std::string& group, const std::string& key, const std::u16string& value)
    : below_(host::SettingsService::getSettingsRoot()) {
    host::SettingsService::setSettingsRoot(std::make_shared<Overlay>(below_, "", Replacement{group, key, value}));
}

SettingsOverride::~SettingsOverride() {
    host::SettingsService::setSettingsRoot(std::move(below_));
}

}  // namespace operations
