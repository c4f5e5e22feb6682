/// Everything that can read and write the same XML files: this project's library, what it is made of, and what people
/// use instead. Each has its own file in peers/.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace benchmarks {

/// A file that was read, in the form that a peer keeps it in memory. Not synchronised.
class Document {
public:
    virtual ~Document() = default;

    /// Writes the document to `file`, replacing it.
    /// @throws std::runtime_error if that fails, or if this peer only reads
    virtual void write(const std::string& file) const;

protected:
    Document() = default;
    Document(const Document&) = default;
    Document& operator=(const Document&) = default;
};

/// Whether a peer writes its documents, in its own layout or just the bytes that this project's library writes.
enum class Writing { none, ownLayout, sameBytes };

struct Peer {
    const char* name;

    /// The content of `file`; null if the peer keeps nothing.
    /// @throws std::exception if it cannot be read
    std::unique_ptr<Document> (*read)(const std::string& file);

    bool isReader;  ///< whether its reading is of interest
    Writing writing;
};

/// All peers, this project's library first.
const std::vector<Peer>& allPeers();

// One function per peer, in the files in peers/.
std::unique_ptr<Document> readWithProjectMetadata(const std::string& file);
std::unique_ptr<Document> visitWithTextReader(const std::string& file);
std::unique_ptr<Document> visitWithPushParser(const std::string& file);
std::unique_ptr<Document> readBytes(const std::string& file);
std::unique_ptr<Document> readForTextWriter(const std::string& file);
std::unique_ptr<Document> readPlainTree(const std::string& file);
std::unique_ptr<Document> readWithLibxml2Dom(const std::string& file);
std::unique_ptr<Document> readWithPugixml(const std::string& file);
std::unique_ptr<Document> readPlainTreeWithPugixml(const std::string& file);
std::unique_ptr<Document> readWithTinyxml2(const std::string& file);
std::unique_ptr<Document> readWithPropertyTree(const std::string& file);
std::unique_ptr<Document> readWithQtDom(const std::string& file);

}  // namespace benchmarks
