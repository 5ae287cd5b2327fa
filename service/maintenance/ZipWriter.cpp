#include "service/maintenance/ZipWriter.h"

#include <QDateTime>
#include <QFile>
#include <QIODevice>
#include <zip.h>

namespace Orv::Service {

namespace {

constexpr qint64 BlockSize = 256 * 1024;
// Logs and reports are text: the fastest level already shrinks them several
// times, and the administrator waits for the archive.
constexpr int Level = 1;
// Entry names are UTF-8 (general purpose flag bit 11).
constexpr uLong Utf8Names = 1 << 11;
constexpr qint64 Zip32Limit = 0xffffffffLL;

zip_fileinfo entryInfo()
{
    zip_fileinfo info{};
    const QDateTime now = QDateTime::currentDateTime();
    info.tmz_date.tm_sec = static_cast<uInt>(now.time().second());
    info.tmz_date.tm_min = static_cast<uInt>(now.time().minute());
    info.tmz_date.tm_hour = static_cast<uInt>(now.time().hour());
    info.tmz_date.tm_mday = static_cast<uInt>(now.date().day());
    info.tmz_date.tm_mon = static_cast<uInt>(now.date().month() - 1);
    info.tmz_date.tm_year = static_cast<uInt>(now.date().year());
    // Regular file, rw for the owner only, in the high half (made by Unix).
    info.external_fa = static_cast<uLong>(0100600) << 16;
    return info;
}

} // namespace

ZipWriter::ZipWriter(const QString& path)
    : m_zip(zipOpen64(QFile::encodeName(path).constData(), APPEND_STATUS_CREATE))
{
}

ZipWriter::~ZipWriter()
{
    if (m_zip)
        zipClose(m_zip, nullptr);
}

QString ZipWriter::open(const QString& name, bool large)
{
    if (!m_zip)
        return QStringLiteral("the archive is not open");
    const zip_fileinfo info = entryInfo();
    // Version made by: Unix (3), so that the permissions above are read.
    const int result =
        zipOpenNewFileInZip4_64(m_zip, name.toUtf8().constData(), &info, nullptr, 0, nullptr, 0,
                                nullptr, Z_DEFLATED, Level, 0, -MAX_WBITS, DEF_MEM_LEVEL,
                                Z_DEFAULT_STRATEGY, nullptr, 0, 3 << 8, Utf8Names, large ? 1 : 0);
    return result == ZIP_OK
               ? QString()
               : QStringLiteral("cannot add %1 to the archive (error %2)").arg(name).arg(result);
}

QString ZipWriter::addDevice(const QString& name, QIODevice* source, qint64 maxBytes)
{
    if (const QString failure = open(name, maxBytes >= Zip32Limit); !failure.isEmpty())
        return failure;
    QByteArray block(static_cast<int>(BlockSize), Qt::Uninitialized);
    QString failure;
    for (qint64 left = maxBytes; left > 0;) {
        const qint64 got = source->read(block.data(), qMin(left, BlockSize));
        if (got < 0)
            failure = QStringLiteral("cannot read %1: %2").arg(name, source->errorString());
        if (got <= 0)
            break;
        if (zipWriteInFileInZip(m_zip, block.constData(), static_cast<unsigned>(got)) != ZIP_OK) {
            failure = QStringLiteral("cannot write %1 into the archive").arg(name);
            break;
        }
        left -= got;
    }
    if (zipCloseFileInZip(m_zip) != ZIP_OK && failure.isEmpty())
        failure = QStringLiteral("cannot write %1 into the archive").arg(name);
    return failure;
}

QString ZipWriter::addBytes(const QString& name, const QByteArray& data)
{
    if (const QString failure = open(name, false); !failure.isEmpty())
        return failure;
    const bool written =
        zipWriteInFileInZip(m_zip, data.constData(), static_cast<unsigned>(data.size())) == ZIP_OK;
    if (zipCloseFileInZip(m_zip) != ZIP_OK || !written)
        return QStringLiteral("cannot write %1 into the archive").arg(name);
    return QString();
}

QString ZipWriter::close()
{
    if (!m_zip)
        return QStringLiteral("the archive is not open");
    const int result = zipClose(m_zip, nullptr);
    m_zip = nullptr;
    return result == ZIP_OK ? QString()
                            : QStringLiteral("cannot complete the archive (error %1)").arg(result);
}

} // namespace Orv::Service
