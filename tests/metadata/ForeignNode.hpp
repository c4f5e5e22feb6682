/// A node of another implementation than the library's.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "project/metadata/MetadataNodeSpecification.hpp"

namespace test {

/// Keeps its attributes in the order given and checks none of them.
class ForeignNode : public project::metadata::MetadataNodeSpecification {
public:
    using Attributes = std::vector<std::pair<std::u16string, std::u16string>>;

    ForeignNode(std::u16string name, Attributes attributes)
        : MetadataNodeSpecification(u"hidden"), name_(std::move(name)), attributes_(std::move(attributes)) {}

    const std::u16string& getName() const override { return name_; }

    std::vector<std::u16string> getAttributeKeys() const override {
        std::vector<std::u16string> keys;
        for (const auto& [key, value] : attributes_)
            keys.push_back(key);
        return keys;
    }

    const std::u16string& get(std::u16string key) const override {
        for (const auto& attribute : attributes_) {
            if (attribute.first == key)
                return attribute.second;
        }
        return MetadataNodeSpecification::get(key);
    }

private:
    std::u16string name_;
    Attributes attributes_;
};

}  // namespace test
