#pragma once

#include <QByteArray>
#include <QString>

class QIODevice;

namespace Orv::Service {

// A zip archive written entry by entry: each entry is compressed as it is
// read, in small blocks, so that an archive of any size costs little memory.
// Entry names are UTF-8 paths inside the archive ("logs/orvd.log").
class ZipWriter
{
public:
    // Creates the file; isOpen() tells whether that worked.
    explicit ZipWriter(const QString& path);
    // Closes the archive if close() was not called.
    ~ZipWriter();
    ZipWriter(const ZipWriter&) = delete;
    ZipWriter& operator=(const ZipWriter&) = delete;

    bool isOpen() const { return m_zip != nullptr; }
    // Each returns an empty string on success, otherwise the reason. A
    // source that fails part-way leaves what was read in the entry.
    QString addDevice(const QString& name, QIODevice* source, qint64 maxBytes);
    QString addBytes(const QString& name, const QByteArray& data);
    // Writes the central directory; the archive is complete only after this.
    QString close();

private:
    QString open(const QString& name, bool large);

    void* m_zip = nullptr;
};

} // namespace Orv::Service
