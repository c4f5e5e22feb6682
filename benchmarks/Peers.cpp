#include "benchmarks/Peers.hpp"

#include <stdexcept>

namespace benchmarks {

void Document::write(const std::string& file) const {
    throw std::runtime_error("nothing to write to " + file);
}

const std::vector<Peer>& allPeers() {
    static const std::vector<Peer> peers = {
        {"project_metadata", readWithProjectMetadata, true, Writing::sameBytes},
        {"libxml2_text_reader", visitWithTextReader, true, Writing::none},
        {"libxml2_push_parser", visitWithPushParser, true, Writing::none},
        {"ready_bytes", readBytes, false, Writing::sameBytes},
        {"libxml2_text_writer", readForTextWriter, false, Writing::sameBytes},
        {"libxml2_plain_tree", readPlainTree, true, Writing::none},
        {"libxml2_dom", readWithLibxml2Dom, true, Writing::ownLayout},
        {"pugixml", readWithPugixml, true, Writing::ownLayout},
        {"pugixml_plain_tree", readPlainTreeWithPugixml, true, Writing::none},
        {"tinyxml2", readWithTinyxml2, true, Writing::ownLayout},
        {"property_tree", readWithPropertyTree, true, Writing::ownLayout},
#ifdef BENCHMARKS_WITH_QT
        {"qt_dom", readWithQtDom, true, Writing::ownLayout},
#endif
    };
    return peers;
}

}  // namespace benchmarks
