/// A project whose content is on a server: when it is found, made, read and changed. How that goes together with the
/// core file, with others at work and with what may fail is written down at the top of ServerProject.cpp.
///
/// One thread at a time may use an object.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "host/Path.hpp"
#include "store_support/DamageTeller.hpp"
#include "store_support/FileVersion.hpp"
#include "store_support/StoreFactory.hpp"
#include "stores/Names.hpp"
#include "stores/postgresql/Address.hpp"
#include "stores/postgresql/Connection.hpp"
#include "stores/postgresql/PathEdit.hpp"
#include "stores/postgresql/ProjectTable.hpp"
#include "stores/postgresql/ReadAhead.hpp"

namespace stores::postgresql {

class ServerProject {
public:
    /// Looks where the project is, if there is one, and connects to the server.
    /// @param folder the metadata folder
    /// @param limit how long to wait for the server and for others
    /// @throws MetadataReadFailure naming the core file, the server, the project and the cause
    ServerProject(const Path& folder, JobRunner runJob, std::chrono::milliseconds limit);

    const Path& getCoreFile() const noexcept { return coreFile_; }

    /// Where a new project is made; without that, on the first server that the settings allow.
    void chooseService(std::u16string service) { chosenService_ = std::move(service); }
    void chooseSchema(std::u16string schema) { chosenSchema_ = std::move(schema); }

    /// What there is of the project at one moment. No value if there is no project.
    /// @throws MetadataReadFailure as the constructor; host::InterruptedException
    std::optional<Answer> ask(const Question& question);

    /// The row `id`, null if there is none. It stays until the next question.
    /// @throws as `ask`
    const Row* readRow(const PathId& id);

    /// The rows of the children of a path, in their order; without those that are damaged, which are told. They stay
    /// until the next question. @throws as `ask`
    std::vector<const Row*> readChildren(const PathId& parent);

    /// The store's user knows the row `id` as the batch `changed` left it.
    void addSeen(const PathId& id, std::int64_t changed) { seen_.addRow(id, changed); }

    /// Which nodes the store's user takes to be there.
    ToldNodes& told() noexcept { return seen_.told(); }

    /// Carries out `edit` as one batch and one job, unless it changes nothing; makes the project if there is none and
    /// `edit` does that.
    /// @throws project::metadata::MetadataWriteFailure naming the core file, the server, the project and the cause; as
    ///         `PathEdit` and `ask`
    void change(const PathEdit& edit);

    /// Removes the project that was used last from the server, unless there are batches after `last`. What has become
    /// of its core file meanwhile does not matter.
    /// @return whether it is gone
    /// @throws MetadataWriteFailure; as `ask`
    bool remove(std::int64_t last);

    /// Waits until the number of the last batch is another than `known`, until `end`, or until the file descriptor
    /// `other` can be read, -1 for none. @return the number; 0 if there is no project
    /// @throws MetadataReadFailure; host::InterruptedException
    std::int64_t waitForBatch(std::int64_t known, int other, std::chrono::steady_clock::time_point end);

    /// Which project of which server it is, in words. It must exist.
    std::u16string describe() const;

    /// Tells of damage in the rows of the server, once.
    /// @param version the batch that has changed the damaged row last
    void tellDamage(const std::u16string& problem, std::int64_t version);

    /// That the rows of the server say something that no store writes.
    [[noreturn]] void raiseDamage(const std::u16string& problem) const;

private:
    using Clock = Connection::Clock;

    /// Looks at the core file again, if it has changed. @return whether there is a project
    bool find();

    void noteLook(Clock::time_point begin, std::int64_t batch);

    /// Whether what was read ahead is what the server has.
    bool isUpToDate();

    void connect(const Server& server, Clock::time_point end);

    /// The connection to `server`, made if there is none. @throws ServerError
    Connection& useConnection(const Server& server, Clock::time_point end);

    /// The connection to the server of the project, which has the tables. @throws ServerError
    Connection& useProject(Clock::time_point end);

    /// Makes the connection be told of batches of the project, if it is not yet and the server can do that.
    /// @return whether there may have been batches of which it was not told
    bool listen();

    void write(const PathEdit& edit, const RowChanges& changes, std::int64_t last);

    /// @return the number of the batch, no value if there is nothing left to change
    /// @throws ServerError; as `PathEdit`
    std::optional<std::int64_t> write(const PathEdit& edit, const RowChanges& changes, std::int64_t last,
                                      const uuid& token);

    /// Whether a batch that failed like that may succeed if nobody is told of it, as is done from now on.
    bool canDoWithoutTelling(const ServerError& error);

    /// @throws MetadataWriteFailure if there is none
    Server getServerForNew() const;

    /// @return false if somebody else has made the project meanwhile
    bool create(const PathEdit& edit);
    void createOnServer(const Address& address, const RowChanges& changes);
    bool removeFromServer(const Address& address, std::int64_t last);

    std::u16string describe(const Address& address, const ServerError& error) const;

    Path folder_;
    Path coreFile_;
    JobRunner runJob_;
    std::chrono::milliseconds limit_;
    std::optional<std::u16string> chosenService_, chosenSchema_;

    std::optional<FileVersion> version_;  // of the core file that was read last
    std::optional<Address> address_;      // what it says
    std::optional<Server> connected_;     // where the connection leads
    std::optional<Connection> connection_;
    bool hasTables_ = false;         // whether there are tables where the connection leads
    bool canTell_ = false;           // whether batches are told to those who listen there
    bool refusesToTell_ = false;     // whether a server has refused to, though it has what is needed
    std::optional<uuid> listensTo_;  // the project of whose batches the connection is told, or cannot be
    bool isTold_ = false;            // whether it is
    Clock::time_point nextLook_;     // when to look for batches if nothing is told before
    SeenChanges seen_;
    ReadAhead ahead_;
    store_support::DamageTeller teller_;
    Clock::duration fastestLook_ = std::chrono::milliseconds(50);
    std::int64_t lastBatch_ = 0;      // when the server was asked last
    Clock::time_point isFreshUntil_;  // that number
    std::int64_t changesKnown_ = 0;   // of this process, at the last question
};

}  // namespace stores::postgresql
