// Boost.PropertyTree, a tree of strings in UTF-8 that knows attributes as children.

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>

#include "benchmarks/Peers.hpp"

namespace benchmarks {

namespace {

namespace property_tree = boost::property_tree;

struct PropertyDocument : Document {
    void write(const std::string& file) const override {
        property_tree::write_xml(file, tree, std::locale(),
                                 property_tree::xml_writer_make_settings<std::string>(' ', 4, "UTF-8"));
    }

    property_tree::ptree tree;
};

}  // namespace

std::unique_ptr<Document> readWithPropertyTree(const std::string& file) {
    auto document = std::make_unique<PropertyDocument>();
    property_tree::read_xml(file, document->tree, property_tree::xml_parser::trim_whitespace);
    return document;
}

}  // namespace benchmarks
