// The document object model of Qt: the nearest peer, since it keeps its texts in UTF-16 too.

#include <QtCore/QFile>
#include <QtCore/QTextStream>
#include <QtXml/QDomDocument>
#include <stdexcept>

#include "benchmarks/Peers.hpp"

namespace benchmarks {

namespace {

struct QtDocument : Document {
    void write(const std::string& file) const override {
        QFile output(QString::fromStdString(file));
        if (!output.open(QIODevice::WriteOnly | QIODevice::Truncate))
            throw std::runtime_error("Qt cannot write " + file);
        QTextStream stream(&output);
        document.save(stream, 4);
    }

    QDomDocument document;
};

}  // namespace

std::unique_ptr<Document> readWithQtDom(const std::string& file) {
    auto document = std::make_unique<QtDocument>();
    QFile input(QString::fromStdString(file));
    if (!input.open(QIODevice::ReadOnly) || !document->document.setContent(&input))
        throw std::runtime_error("Qt cannot read " + file);
    return document;
}

}  // namespace benchmarks
