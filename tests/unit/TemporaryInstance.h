#pragma once

#include "orvCommon/AppPath.h"
#include "orvCommon/DefaultSettings.h"
#include "orvCommon/Rebranding.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

// Points this process at a fresh, empty instance (ORV_ROOT) for the lifetime
// of the object, and back at the previous one afterwards, reloading the
// process-wide paths, branding and settings store each time.
class TemporaryInstance
{
public:
    TemporaryInstance()
        : m_saved(qgetenv("ORV_ROOT")), m_hadRoot(qEnvironmentVariableIsSet("ORV_ROOT"))
    {
        QDir(m_dir.path()).mkpath(QStringLiteral("config"));
        qputenv("ORV_ROOT", QFile::encodeName(m_dir.path()));
        reloadAll();
    }
    ~TemporaryInstance()
    {
        if (m_hadRoot)
            qputenv("ORV_ROOT", m_saved);
        else
            qunsetenv("ORV_ROOT");
        reloadAll();
    }
    TemporaryInstance(const TemporaryInstance&) = delete;
    TemporaryInstance& operator=(const TemporaryInstance&) = delete;

    QString path(const QString& relative) const { return QDir(m_dir.path()).filePath(relative); }

    void writeFile(const QString& relative, const QByteArray& data) const
    {
        const QString target = path(relative);
        QDir().mkpath(QFileInfo(target).absolutePath());
        QFile file(target);
        if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            file.write(data);
    }

    QByteArray readFile(const QString& relative) const
    {
        QFile file(path(relative));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    // Re-reads everything after the test changed files behind the store's back.
    static void reloadAll()
    {
        Orv::Defines::AppPath::reload();
        Orv::Defines::Rebranding::reload();
        Orv::DefaultSettings::instance()->reload();
    }

private:
    QTemporaryDir m_dir;
    QByteArray m_saved;
    bool m_hadRoot;
};
