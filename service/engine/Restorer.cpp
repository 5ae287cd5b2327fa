#include "service/engine/Restorer.h"

#include "orvRepository/Generation.h"
#include "service/engine/EntryNodes.h"

#include <QHash>
#include <QMap>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <thread>

namespace Orv::Engine {

using namespace Kel::Archive;
using Orv::Repository::BlobLocation;
using Orv::Repository::Generation;
using Orv::Repository::Status;

namespace {

// Ranges of one pack closer than this are read together, up to a read of
// about kMaxRead bytes (so that memory stays small whatever the pack size).
constexpr quint64 kReadGap = 1024 * 1024;
constexpr quint64 kMaxRead = 4 * 1024 * 1024;
// Files planned before their packs are fetched: bounds the plan's memory
// whatever the number of files restored.
constexpr std::size_t kBatchFiles = 4096;

QString text(const QByteArray& path)
{
    return QString::fromLocal8Bit(path);
}

// One folder's entries from its listings in several restore points, newest
// first: a name takes its newest entry, and a folder the subtrees of every
// point where it was a folder, so that the walk can merge below it too.
Status mergedTree(Generation::Reader& reader, const QVector<QByteArray>& trees,
                  QVector<Node>* nodes, QHash<QByteArray, QVector<QByteArray>>* subtrees)
{
    QHash<QByteArray, int> seen;
    for (int t = 0; t < trees.size(); ++t) {
        QVector<Node> listing;
        const Status status = reader.tree(trees.at(t), &listing);
        if (!status.ok()) {
            // What an earlier point held is a bonus; the chosen one must read.
            if (t == 0) {
                return status;
            }
            continue;
        }
        for (Node& node : listing) {
            const auto known = seen.constFind(node.name);
            if (known == seen.constEnd()) {
                seen.insert(node.name, nodes->size());
                if (node.isDirectory()) {
                    (*subtrees)[node.name].append(node.subtree);
                }
                nodes->append(std::move(node));
            } else if (node.isDirectory() && nodes->at(*known).isDirectory()) {
                QVector<QByteArray>& below = (*subtrees)[node.name];
                if (!below.contains(node.subtree)) {
                    below.append(node.subtree);
                }
            }
        }
    }
    return Status::success();
}

} // namespace

// One file to write: where, what, and how many of its pieces are still due.
struct FileJob
{
    QByteArray path;
    QByteArray place;
    Node node;
    std::mutex mutex;
    std::unique_ptr<RestoreTarget::FileWriter> writer;
    int remaining = 0;
    bool failed = false;
};

struct Piece
{
    FileJob* file;
    quint64 offset;
};

struct Restorer::Plan
{
    std::vector<std::unique_ptr<FileJob>> files;
    // Per pack: each needed blob with the pieces it fills.
    QMap<QByteArray, QMap<quint64, std::pair<BlobEntry, QVector<Piece>>>> packs;
    QVector<std::pair<QByteArray, Node>> folders;     // place and node, parents first
    QVector<std::pair<QByteArray, QByteArray>> links; // place, place of the first
    QStringList failed;
    std::mutex failedMutex;
    quint64 skipped = 0;

    void fail(const QByteArray& path, const QString& reason)
    {
        std::lock_guard lock(failedMutex);
        failed.append(QStringLiteral("%1: %2").arg(text(path), reason));
    }
};

Restorer::Restorer(const Orv::Repository::Repository& repository,
                   const RestoreDescription& description)
    : m_repository(repository), m_description(description)
{
}

Restorer::~Restorer() = default;

// Writes the files of the plan: those without content at once, the others
// from their packs, each pack read once, shared out to the threads in name
// order. The plan's files and packs are empty afterwards.
void Restorer::fetch(Plan& plan, Generation& generation, RestoreTarget& target)
{
    // Files without content are written now; the others as their packs come.
    for (auto& file : plan.files) {
        if (file->failed || file->remaining > 0) {
            continue;
        }
        QString error;
        file->writer = target.openFile(file->place, file->node, &error);
        if (!file->writer || !file->writer->commit(&error)) {
            plan.fail(file->path, error);
            file->failed = true;
        } else {
            ++filesDone;
        }
    }

    // Packs are shared out to the threads in name order.
    const QList<QByteArray> packs = plan.packs.keys();
    std::atomic<int> next{0};
    auto work = [&]() {
        Generation::Reader packReader(generation);
        for (int i = next++; i < packs.size() && !m_stop && !m_diskFull; i = next++) {
            const auto& blobs = plan.packs[packs.at(i)];
            auto it = blobs.cbegin();
            while (it != blobs.cend()) {
                // One read for a run of blobs with small gaps between them.
                auto last = it;
                quint64 end = it.key() + it.value().first.storedLength;
                for (auto n = std::next(it); n != blobs.cend() && n.key() <= end + kReadGap &&
                                             n.key() - it.key() < kMaxRead;
                     ++n) {
                    last = n;
                    end = std::max(end, n.key() + n.value().first.storedLength);
                }
                QByteArray range;
                const quint64 start = it.key();
                const Status read = packReader.packRange(packs.at(i), start, end - start, &range);
                for (auto b = it;; ++b) {
                    const BlobEntry& entry = b.value().first;
                    QByteArray data;
                    QString reason;
                    if (!read.ok()) {
                        reason = read.message;
                    } else if (!packReader.decode(range.constData() + (b.key() - start),
                                                  entry.storedLength, entry, &data)) {
                        reason = QStringLiteral("its data in pack %1 is damaged")
                                     .arg(QString::fromLatin1(packs.at(i)));
                    }
                    for (const Piece& piece : b.value().second) {
                        FileJob& file = *piece.file;
                        std::lock_guard lock(file.mutex);
                        if (file.failed) {
                            continue;
                        }
                        QString error = reason;
                        if (error.isEmpty() && !file.writer) {
                            file.writer = target.openFile(file.place, file.node, &error);
                        }
                        if (error.isEmpty() &&
                            file.writer->write(piece.offset, data.constData(),
                                               std::size_t(data.size()), &error)) {
                            bytesDone += quint64(data.size());
                            if (--file.remaining == 0) {
                                if (file.writer->commit(&error)) {
                                    ++filesDone;
                                    file.writer.reset();
                                    continue;
                                }
                            } else {
                                continue;
                            }
                        }
                        file.failed = true;
                        file.writer.reset();
                        plan.fail(file.path, error);
                        if (error.contains(QString::fromLocal8Bit(strerror(ENOSPC)))) {
                            m_diskFull = true;
                        }
                    }
                    if (b == last) {
                        break;
                    }
                }
                it = std::next(last);
            }
        }
    };
    std::vector<std::thread> threads;
    for (int i = 1; i < std::max(1, m_description.threads); ++i) {
        threads.emplace_back(work);
    }
    work();
    for (std::thread& t : threads) {
        t.join();
    }
    for (auto& file : plan.files) {
        if (!file->failed && file->remaining > 0) {
            file->writer.reset();
            plan.fail(file->path, m_stop ? QStringLiteral("the restore was stopped")
                                         : QStringLiteral("not restored"));
        }
    }

    plan.files.clear();
    plan.packs.clear();
}

RestoreResult Restorer::run()
{
    RestoreResult result;
    QString generationId = m_description.generation;
    if (generationId.isEmpty()) {
        QList<Orv::Repository::GenerationInfo> generations;
        const Status status = m_repository.generations(m_description.bunch, &generations);
        if (!status.ok()) {
            result.message = status.message;
            return result;
        }
        for (const auto& g : generations) {
            if (!m_description.pointInTime.isValid() || g.firstPoint <= m_description.pointInTime) {
                generationId = g.id;
            }
        }
        if (generationId.isEmpty()) {
            result.message = QStringLiteral("The bunch holds no restore point to restore from.");
            return result;
        }
    }
    std::unique_ptr<Generation> generation;
    Status status = Generation::open(m_repository, m_description.bunch, generationId,
                                     m_description.password, &generation);
    if (!status.ok()) {
        result.message = status.message;
        return result;
    }
    const PointRecord* point = nullptr;
    if (!m_description.point.isEmpty()) {
        point = generation->point(m_description.point);
    } else if (m_description.pointInTime.isValid()) {
        point = generation->pointAt(m_description.pointInTime);
    } else if (!generation->points().isEmpty()) {
        point = &generation->points().last();
    }
    if (!point) {
        result.message =
            QStringLiteral("No such restore point in generation %1.").arg(generationId);
        return result;
    }

    RestoreTarget target(m_description.target);
    Plan plan;
    Generation::Reader reader(*generation);
    QHash<QPair<quint64, quint64>, QByteArray> firstLinks;

    // Walks the point's trees depth first; an explicit stack keeps deep
    // trees off the call stack. With deleted files, each folder is the
    // point's listing merged with the same folder in earlier points, the
    // newest entry of a name winning.
    struct Visit
    {
        QByteArray path;
        QVector<QByteArray> trees; // newest first, each once
    };
    std::vector<Visit> stack{{QByteArray("/"), {point->root}}};
    if (m_description.includeDeleted) {
        const auto& points = generation->points();
        for (int i = points.size() - 1; i >= 0; --i) {
            if (points.at(i).start < point->start && !stack[0].trees.contains(points.at(i).root)) {
                stack[0].trees.append(points.at(i).root);
            }
        }
    }
    while (!stack.empty() && !m_stop) {
        const Visit visit = stack.back();
        stack.pop_back();
        QVector<Node> nodes;
        QHash<QByteArray, QVector<QByteArray>> subtrees;
        status = mergedTree(reader, visit.trees, &nodes, &subtrees);
        if (!status.ok()) {
            plan.fail(visit.path, status.message);
            continue;
        }
        for (Node& node : nodes) {
            const QByteArray path =
                visit.path == "/" ? '/' + node.name : visit.path + '/' + node.name;
            const bool chosen = selected(path, m_description.paths);
            if (!chosen && !(node.isDirectory() && onTheWay(path, m_description.paths))) {
                continue;
            }
            QString error;
            const QByteArray place = target.place(path, &error);
            if (place.isEmpty()) {
                plan.fail(path, error);
                continue;
            }
            if (node.isDirectory()) {
                if (!target.makeDirectory(place, &error)) {
                    plan.fail(path, error);
                    continue;
                }
                if (chosen) {
                    plan.folders.append({place, node});
                }
                stack.push_back({path, subtrees.value(node.name)});
                continue;
            }
            if (!target.wanted(place, node)) {
                ++plan.skipped;
                continue;
            }
            if (node.type == Node::Type::Symlink) {
                if (!target.makeSymlink(place, node, &error)) {
                    plan.fail(path, error);
                }
                continue;
            }
            if (node.type != Node::Type::File) {
                if (!target.makeSpecial(place, node, &error)) {
                    plan.fail(path, error);
                }
                continue;
            }
            if (node.links > 1) {
                const QPair<quint64, quint64> key(node.device, node.inode);
                const auto first = firstLinks.constFind(key);
                if (first != firstLinks.constEnd()) {
                    plan.links.append({place, first.value()});
                    continue;
                }
                firstLinks.insert(key, place);
            }
            auto job = std::make_unique<FileJob>();
            job->path = path;
            job->place = place;
            job->node = node;
            quint64 offset = 0;
            bool located = true;
            for (const QByteArray& id : node.chunks) {
                BlobLocation location;
                if (!generation->cache().findBlob(generation->number(), id, &location)) {
                    plan.fail(path, QStringLiteral("its data is missing from the index"));
                    located = false;
                    break;
                }
                auto& blob = plan.packs[location.pack][location.entry.offset];
                blob.first = location.entry;
                blob.second.append({job.get(), offset});
                offset += location.entry.rawLength;
                ++job->remaining;
            }
            if (!located) {
                job->failed = true;
            }
            plan.files.push_back(std::move(job));
            if (plan.files.size() >= kBatchFiles) {
                fetch(plan, *generation, target);
            }
        }
    }

    fetch(plan, *generation, target);

    for (const auto& [place, first] : plan.links) {
        QString error;
        if (!target.makeHardLink(place, first, &error)) {
            plan.fail(place, error);
        } else {
            ++filesDone;
        }
    }
    for (int i = plan.folders.size() - 1; i >= 0; --i) {
        QString error;
        if (!target.finishDirectory(plan.folders.at(i).first, plan.folders.at(i).second, &error)) {
            plan.fail(plan.folders.at(i).first, error);
        }
    }

    result.files = filesDone;
    result.bytes = bytesDone;
    result.skipped = plan.skipped;
    result.failed = plan.failed;
    result.ok = plan.failed.isEmpty() && !m_stop;
    result.message = m_stop      ? QStringLiteral("The restore was stopped.")
                     : result.ok ? QStringLiteral("Restore completed.")
                                 : QStringLiteral("Restore completed with %1 item(s) not restored.")
                                       .arg(plan.failed.size());
    if (m_diskFull) {
        result.message = QStringLiteral("The restore target is full: %1").arg(plan.failed.first());
    }
    return result;
}

} // namespace Orv::Engine
