// A project is a core file, which says where the content is (Address.hpp), and the rows there (ProjectTable.cpp).
//
// It is made on the server first; the core file comes last and makes it a project. A process that dies in between
// leaves rows that belong to nobody and that nobody sees.
//
// A change is worked out from what the server says at one moment. If it does something, it is announced as a job of the
// core file, which stands for the project though not a byte of it changes, and then sent with one round trip, on
// condition that nobody has made a batch since. Where somebody has, the store gets in line: it locks the project's row,
// asks again, works the change out anew, and writes, with two round trips.
//
// What is read comes with more, which is kept (ReadAhead.hpp) and is good as long as nobody has made a batch since.
// Whether somebody has is asked each time, unless it was found out just now: within the time that the fastest such
// question has taken, by when nobody far away can have told of a change. Changes of this process are known at once.
//
// Whoever waits for changes is told of them, where the server can do that (LISTEN, NOTIFY), and looks at the number of
// the last batch only now and then, since others may not be able to tell; otherwise each second.
//
// What passes is tried again until the limit is reached: the server restarts, or asks for it, as distributed ones do.
// If the connection breaks while a change is being written, it may have been made or not. The next connection gets in
// line behind what is left of it, and looks for the token of the batch. Where it is not there, it never will be: what
// the broken connection may still have sent counts only as the batch after one that is not the last any more.

#include "stores/postgresql/ServerProject.hpp"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>

#include "host/Interruption.hpp"
#include "store_support/CoreFileType.hpp"
#include "store_support/Disk.hpp"
#include "store_support/FileBatch.hpp"
#include "store_support/FolderLock.hpp"
#include "stores/postgresql/Damage.hpp"

namespace stores::postgresql {

using project::metadata::FileJob;

namespace {

// Codes of the SQL standard, and of PostgreSQL.
constexpr const char* undefinedTable = "42P01";
constexpr const char* lockNotAvailable = "55P03";
constexpr const char* uniqueViolation = "23505";
constexpr const char* cannotConnectNow = "57P03";

/// How many batches this process has written, so that its stores see each other's at once.
std::atomic<std::int64_t> changesHere = 0;

/// Unwinds the making of a project that somebody else has made meanwhile.
struct ProjectAppeared {};

/// Waits a little before the next try, longer each time.
void pause(int attempt) {
    host::Interruption::throwIfRequested();
    std::this_thread::sleep_for(std::chrono::milliseconds(std::min(200, 5 << std::min(attempt, 6))));
}

uuid makeRandom() {
    return boost::uuids::random_generator()();
}

std::u16string describe(const Address& address) {
    return u"the project " + fromUtf8(to_string(address.project)) + u" in the schema \"" + address.server.schema +
           u"\" of the service \"" + address.server.service + u'"';
}

/// What there is in a new project.
Answer makeFirstAnswer() {
    Answer answer;
    Row root{};
    root.element.emplace(u"", u"");
    answer.rows.emplace(rootId, root);
    answer.all.push_back(root);
    return answer;
}

}  // namespace

ServerProject::ServerProject(const Path& folder, JobRunner runJob, std::chrono::milliseconds limit)
    : folder_(folder), coreFile_(folder / coreFileName()), runJob_(std::move(runJob)), limit_(limit) {
    if (const auto answer = ask({}))
        seen_.restart(answer->batch);
}

Server ServerProject::getServerForNew() const {
    if (chosenService_)
        return {*chosenService_, chosenSchema_.value_or(usualSchema)};
    std::vector<Server> allowed = getAllowedServers(coreFile_);
    if (allowed.empty()) {
        raise<MetadataWriteFailure>(coreFile_.text(), u"there is no server for a new project: the user's setting " +
                                                          getSettingName() + u" allows none");
    }
    return {allowed.front().service, chosenSchema_.value_or(allowed.front().schema)};
}

bool ServerProject::find() {
    auto version = getFileVersion(coreFile_);
    if (version && version_ && *version == *version_)
        return true;
    version_.reset();
    auto address = version ? readAddress(coreFile_) : std::nullopt;
    if (!address)
        return false;
    requireAllowed(address->server, coreFile_);
    if (!address_ || !(*address == *address_)) {
        // Another project: nothing of it is known.
        seen_.restart();
        ahead_.clear();
        address_ = std::move(address);
    }
    version_ = version;
    return true;
}

void ServerProject::connect(const Server& server, Clock::time_point end) {
    connection_.emplace(toUtf8(server.service), end);
    connected_ = server;
    listensTo_.reset();
    Calls calls;
    prepareSession(calls, toUtf8(server.schema), limit_);
    const std::size_t version = calls.size();
    askForVersion(calls);
    try {
        const auto results = connection_->run(calls, Patience::interruptible);
        requireVersion(results[version]);
        canTell_ = canTell(results[version - 1]);
        hasTables_ = true;
    } catch (const ServerError& error) {
        if (error.state() != undefinedTable) {
            connection_.reset();
            throw;
        }
        calls.pop_back();
        canTell_ = canTell(connection_->run(calls, Patience::interruptible).back());
        hasTables_ = false;
    }
}

Connection& ServerProject::useConnection(const Server& server, Clock::time_point end) {
    if (!connection_ || !connection_->isOpen() || !(*connected_ == server))
        connect(server, end);
    return *connection_;
}

Connection& ServerProject::useProject(Clock::time_point end) {
    Connection& connection = useConnection(address_->server, end);
    if (!hasTables_)
        throw ServerError("the schema has no tables of projects, or this user may not use it", "", false);
    return connection;
}

std::optional<Answer> ServerProject::ask(const Question& question) {
    if (!find())
        return std::nullopt;
    const auto end = Clock::now() + limit_;
    // A server that has been there before may be about to restart.
    const bool wasThere = connection_ && connection_->isOpen();
    for (int attempt = 0;; ++attempt) {
        try {
            Calls calls;
            postgresql::ask(calls, address_->project, question, Asking::atOneMoment);
            Connection& connection = useProject(end);
            const auto begin = Clock::now();
            changesKnown_ = changesHere;
            const auto results = connection.run(calls, Patience::interruptible);
            if (auto answer = takeAnswer(question, results.data(), Asking::atOneMoment)) {
                noteLook(begin, answer->batch);
                seen_.noteLast(answer->batch);
                return answer;
            }
            throw ServerError("there is no such project, or no more", "", false);
        } catch (const ServerError& error) {
            const bool mayPass = error.isPassing() && (wasThere || error.state() == cannotConnectNow);
            if (!mayPass || Clock::now() >= end)
                raise<MetadataReadFailure>(coreFile_.text(), describe(*address_, error));
        }
        pause(attempt);
    }
}

void ServerProject::noteLook(Clock::time_point begin, std::int64_t batch) {
    const auto now = Clock::now();
    lastBatch_ = batch;
    fastestLook_ = std::min(fastestLook_, now - begin);
    isFreshUntil_ = now + fastestLook_;
}

bool ServerProject::isUpToDate() {
    if (changesKnown_ != changesHere || Clock::now() >= isFreshUntil_)
        ask({});
    return lastBatch_ == ahead_.getBatch();
}

const Row* ServerProject::readRow(const PathId& id) {
    if (!find())
        return nullptr;
    if (!ahead_.isKnown(id) || !isUpToDate()) {
        const Question question = ahead_.getRowQuestion(id);
        ahead_.add(question, *ask(question));
    }
    return ahead_.find(id);
}

std::vector<const Row*> ServerProject::readChildren(const PathId& parent) {
    if (!find())
        return {};
    auto children = ahead_.findChildren(parent);
    if (!children || !isUpToDate()) {
        const Question question = ahead_.getQuestion(parent);
        Answer answer = *ask(question);
        for (const auto& list : answer.childrenOf) {
            for (const Row& row : list.second) {
                if (!row.isSound())
                    tellDamage(describeMisfit(row), row.changed);
            }
        }
        ahead_.add(question, std::move(answer));
        children = ahead_.findChildren(parent);
    }
    return *children;
}

bool ServerProject::listen() {
    Connection& connection = useProject(Clock::now() + limit_);
    if (listensTo_ == address_->project)
        return false;
    isTold_ = false;
    if (canTell_) {
        Calls calls;
        postgresql::listen(calls, address_->project);
        connection.expect(getNotice(address_->project));
        try {
            connection.run(calls, Patience::interruptible);
            isTold_ = true;
        } catch (const ServerError& error) {
            if (error.isLost())
                throw;
            // A server that only follows another one, for example. Looking does as well.
        }
    }
    listensTo_ = address_->project;
    return true;
}

std::int64_t ServerProject::waitForBatch(std::int64_t known, int other, Clock::time_point end) {
    constexpr auto betweenLooks = std::chrono::seconds(1);
    constexpr auto betweenLooksWhenTold = std::chrono::seconds(10);
    while (find()) {
        try {
            // The look comes last: what is told from now on may be older than it, but what is not told is not newer.
            if (listen() || connection_->takeNotice() || lastBatch_ != known || Clock::now() >= nextLook_) {
                const auto answer = ask({});
                nextLook_ = Clock::now() + (isTold_ ? betweenLooksWhenTold : betweenLooks);
                if (!answer || answer->batch != known)
                    return answer ? answer->batch : 0;
            }
            if (!connection_->isOpen() || connection_->waitForNotice(other, std::min(end, nextLook_)))
                continue;
            if (connection_->isOpen() && Clock::now() < nextLook_)
                return known;
        } catch (const ServerError& error) {
            raise<MetadataReadFailure>(coreFile_.text(), describe(*address_, error));
        }
    }
    return 0;
}

void ServerProject::change(const PathEdit& edit) {
    while (true) {
        requireMetadataType(folder_, postgresqlName);
        const auto answer = ask(edit.getQuestion());
        if (answer) {
            const RowChanges changes = edit.apply(*answer, seen_);
            if (!changes.areNone())
                runJob_(FileJob({coreFile_}, {}, [&] { write(edit, changes, answer->batch); }));
            return;
        }
        if (!edit.makesProject() || create(edit))
            return;
    }
}

void ServerProject::write(const PathEdit& edit, const RowChanges& changes, std::int64_t last) {
    host::Interruption::throwIfRequested();
    const uuid project = address_->project;
    requireMetadataType(folder_, postgresqlName);
    if (!find() || address_->project != project)
        raise<MetadataWriteFailure>(coreFile_.text(), u"its project has been removed or replaced meanwhile");
    seen_.reserveOwn();
    try {
        if (const auto batch = write(edit, changes, last, makeRandom()))
            seen_.addOwn(*batch);
        ++changesHere;
    } catch (const ServerError& error) {
        raise<MetadataWriteFailure>(coreFile_.text(), describe(*address_, error));
    }
}

std::optional<std::int64_t> ServerProject::write(const PathEdit& edit, const RowChanges& changes, std::int64_t last,
                                                 const uuid& token) {
    const auto end = Clock::now() + limit_;
    bool isInDoubt = false;
    try {
        Calls calls;
        Connection& connection = useProject(end);
        postgresql::write(calls, address_->project, last, token, changes, false, canTell_ && !refusesToTell_);
        connection.run(calls, Patience::untilAnswered);
        return last + 1;
    } catch (const ServerError& error) {
        if (!error.isPassing() && !isOvertaken(error) && !canDoWithoutTelling(error))
            throw;
        isInDoubt = error.isLost();
    }
    const Question question = edit.getQuestion();
    for (int attempt = 0;; ++attempt) {
        bool isWriting = false;
        try {
            Calls calls;
            postgresql::ask(calls, address_->project, question, Asking::inTurn);
            findBatch(calls, address_->project, token);
            Connection& connection = useProject(end);
            const auto results = connection.run(calls, isInDoubt ? Patience::untilAnswered : Patience::interruptible);
            const OpenTransaction transaction(connection);
            const auto answer = takeAnswer(question, results.data(), Asking::inTurn);
            if (!answer)
                throw ServerError("there is no such project any more", "", false);
            if (results.back().size() > 0)
                return results.back().integer(0, 0);
            if (isInDoubt && answer->batch > last + rememberedBatches)
                throw ServerError("too many changes have been made since", "", false);
            seen_.noteLast(answer->batch);
            const RowChanges anew = edit.apply(*answer, seen_);
            if (anew.areNone())
                return std::nullopt;
            calls.clear();
            postgresql::write(calls, address_->project, answer->batch, token, anew, true, canTell_ && !refusesToTell_);
            isWriting = true;
            connection.run(calls, Patience::untilAnswered);
            return answer->batch + 1;
        } catch (const ServerError& error) {
            isInDoubt = isInDoubt || (isWriting && error.isLost());
            if ((!error.isPassing() && !canDoWithoutTelling(error)) || Clock::now() >= end) {
                if (!isInDoubt)
                    throw;
                throw ServerError(std::string("the connection broke while the change was being written, and whether it "
                                              "was made cannot be found out: ") +
                                      error.what(),
                                  error.state(), error.isLost());
            }
        }
        if (isInDoubt)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        else
            pause(attempt);
    }
}

bool ServerProject::canDoWithoutTelling(const ServerError& error) {
    return isUnsupported(error) && canTell_ && !std::exchange(refusesToTell_, true);
}

bool ServerProject::create(const PathEdit& edit) {
    const Address address{getServerForNew(), makeRandom()};
    requireAllowed(address.server, coreFile_);
    const RowChanges changes = edit.apply(makeFirstAnswer(), seen_);
    FileBatch core;
    core.folder = folder_;
    core.filesToWrite = {coreFile_};
    core.write = [&](std::size_t, const Path& staged) { writeAddress(address, staged); };
    try {
        runJob_(FileJob({coreFile_}, {}, [&] {
            const FolderLock lock(folder_, limit_);
            if (store_support::exists(coreFile_))
                throw ProjectAppeared();
            try {
                createOnServer(address, changes);
            } catch (const ServerError& error) {
                raise<MetadataWriteFailure>(coreFile_.text(), describe(address, error));
            }
            try {
                commit(core, lock);
            } catch (...) {
                // Unless it is there all the same, and only its flushing has failed.
                if (!store_support::exists(coreFile_))
                    removeFromServer(address, 1);
                throw;
            }
        }));
    } catch (const ProjectAppeared&) {
        return false;
    }
    address_ = address;
    version_.reset();
    seen_.restart(1);
    ahead_.clear();
    ++changesHere;
    return true;
}

void ServerProject::createOnServer(const Address& address, const RowChanges& changes) {
    const auto end = Clock::now() + limit_;
    for (int attempt = 0;; ++attempt) {
        try {
            Connection& connection = useConnection(address.server, end);
            Calls calls;
            if (!hasTables_) {
                makeTables(calls);
                connection.run(calls, Patience::interruptible);
                calls.clear();
                hasTables_ = true;
            }
            if (attempt > 0) {
                postgresql::ask(calls, address.project, {}, Asking::atOneMoment);
                if (takeAnswer({}, connection.run(calls, Patience::untilAnswered).data(), Asking::atOneMoment))
                    return;
                calls.clear();
            }
            makeProject(calls, address.project, makeRandom(), changes);
            connection.run(calls, Patience::untilAnswered);
            return;
        } catch (const ServerError& error) {
            // Somebody else has made the tables just now, or what a broken connection had sent has been done.
            const bool isThere = error.state() == uniqueViolation;
            const bool wasThere = attempt > 0 || (connection_ && connected_ && hasTables_);
            if (!(isThere || (error.isPassing() && wasThere)) || Clock::now() >= end)
                throw;
            hasTables_ = hasTables_ && !isThere;
        }
        pause(attempt);
    }
}

bool ServerProject::removeFromServer(const Address& address, std::int64_t last) {
    Calls calls;
    removeProject(calls, address.project, last);
    return useConnection(address.server, Clock::now() + limit_).run(calls, Patience::untilAnswered).front().size() > 0;
}

bool ServerProject::remove(std::int64_t last) {
    if (!address_)
        return true;
    try {
        return removeFromServer(*address_, last);
    } catch (const ServerError& error) {
        raise<MetadataWriteFailure>(coreFile_.text(), describe(*address_, error));
    }
}

void ServerProject::tellDamage(const std::u16string& problem, std::int64_t version) {
    teller_.tell({coreFile_, describe() + u": " + problem}, version);
}

void ServerProject::raiseDamage(const std::u16string& problem) const {
    raise<MetadataReadFailure>(coreFile_.text(), describe() + u": " + problem);
}

std::u16string ServerProject::describe() const {
    return postgresql::describe(*address_);
}

std::u16string ServerProject::describe(const Address& address, const ServerError& error) const {
    std::u16string cause = fromUtf8(error.what());
    if (error.state() == lockNotAvailable)
        cause = u"another program has held it for more than " + fromUtf8(std::to_string(limit_.count())) + u" ms";
    return postgresql::describe(address) + u": " + cause;
}

}  // namespace stores::postgresql
