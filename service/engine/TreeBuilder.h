#pragma once

#include "kelBackupFormat/Tree.h"
#include "kelStreams/Chunker.h"
#include "orvRepository/RunWriter.h"
#include "service/engine/ChunkPipeline.h"
#include "service/engine/RunDescription.h"
#include "service/engine/SourceWalker.h"

#include <QMap>
#include <QStringList>
#include <atomic>
#include <optional>

namespace Orv::Engine {

// Receives the walk, reads what changed, and builds the folder listings
// bottom-up as folders end. The roots' nodes wait in memory (there are few)
// until the walk is over; then the folders above them are made.
class TreeBuilder : public WalkVisitor
{
public:
    // stop is the run's own flag: the walk ends soon after it is set.
    TreeBuilder(const RunDescription& description, RunProgress& progress,
                const std::atomic_bool& stop, Orv::Repository::RunWriter& writer,
                ChunkPipeline& pipeline);

    int warnings = 0;
    int errors = 0;
    quint64 files = 0;
    quint64 bytes = 0;
    QStringList problems;
    Orv::Repository::Status failure;

    bool stopRequested() const override;
    void beginRoot(const WalkEntry& root) override;
    void endRoot(const WalkEntry& root) override;
    void enterDirectory(const WalkEntry& directory) override;
    void leaveDirectory(const WalkEntry&) override;
    void entry(const WalkEntry& entry) override;
    void problem(const QByteArray& path, const QString& reason) override;

    // Whether sources inside other sources wait to be put into them.
    bool hasGrafts() const { return !m_grafts.isEmpty(); }

    // Puts the nested roots into the roots that hold them. The trees read
    // here were stored by this run: the caller waits for their upload first.
    Orv::Repository::Status graft();

    // Hands the trees stored so far to the uploads.
    Orv::Repository::Status flushTrees() { return m_treeWorker->flush(); }

    // The id of the tree that holds every root at its absolute path.
    Orv::Repository::Status finish(QByteArray* rootId);

private:
    struct Pending
    {
        int index;
        std::shared_ptr<FileSlot> slot;
    };
    struct Frame
    {
        Kel::Archive::Node node;
        QByteArray path;
        QVector<Kel::Archive::Node> nodes;
        QVector<Pending> pending;
        QVector<Kel::Archive::Node> previous;
        bool hasPrevious = false;
    };

    void note(const QString& text);
    void countSeen(quint64 size);

    // The previous restore point's node for a name in the current folder (or
    // at the current root).
    const Kel::Archive::Node* previousFor(const QByteArray& name) const;

    // The previous restore point's node at an absolute path, found by
    // descending from its root.
    std::optional<Kel::Archive::Node> previousAt(const QByteArray& path);
    bool readTree(const QByteArray& id, QVector<Kel::Archive::Node>* nodes);
    void place(Kel::Archive::Node node);

    // Waits for the folder's files to be stored and writes their chunk ids
    // into their nodes; files that failed leave the folder.
    bool finishFiles(Frame& frame);
    void finishRootFile(Kel::Archive::Node node, const std::shared_ptr<FileSlot>& slot);

    // Reads the file and hands its chunks to the pipeline. False when it could
    // not be read: counted and named, and the file is left out.
    bool readFile(const WalkEntry& entry, Kel::Archive::Node* node,
                  const std::shared_ptr<FileSlot>& slot);

    quint64 readChunks(int fd, quint64 expected, const std::shared_ptr<FileSlot>& slot,
                       QString* error);
    quint64 chunkBuffer(const QByteArray& data, const std::shared_ptr<FileSlot>& slot);

    // Large files: read ahead into one buffer, cut, and copy each chunk out.
    // The buffer starts at twice the look-ahead and grows only for a chunk
    // that needs more, so its pages stay few and warm.
    quint64 streamChunks(int fd, const std::shared_ptr<FileSlot>& slot, QString* error);

    // Stores a new listing of the folder with the node placed at parts[at...],
    // making the folders between from the file system as they are.
    Orv::Repository::Status graftInto(Kel::Archive::Node* folder, const QByteArray& folderPath,
                                      const QList<QByteArray>& parts, int at,
                                      const Kel::Archive::Node& node);

    // A folder's node as the file system has it now.
    static Kel::Archive::Node folderNode(const QByteArray& path, const QByteArray& name);
    Orv::Repository::Status buildAbove(const QByteArray& path, QByteArray* id);

    const RunDescription& m_description;
    RunProgress& m_progress;
    const std::atomic_bool& m_stop;
    Orv::Repository::RunWriter& m_writer;
    ChunkPipeline& m_pipeline;
    Orv::Repository::Generation::Reader m_reader;
    std::unique_ptr<Orv::Repository::RunWriter::Worker> m_treeWorker;
    Kel::Streams::Chunker m_chunker;
    std::vector<char> m_buffer;
    std::vector<Frame> m_frames;
    QByteArray m_previousRoot;
    std::optional<Kel::Archive::Node> m_rootPrevious;
    bool m_haveRootPrevious = false;
    std::optional<Kel::Archive::Node> m_rootNode;
    QMap<QByteArray, Kel::Archive::Node> m_roots;
    QVector<std::pair<QByteArray, Kel::Archive::Node>> m_grafts;
};

} // namespace Orv::Engine
