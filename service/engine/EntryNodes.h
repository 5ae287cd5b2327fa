#pragma once

#include "kelBackupFormat/Node.h"
#include "service/engine/SourceWalker.h"

#include <QByteArray>
#include <QList>
#include <QString>

// What both formats' archivers and restorers make of walked entries and
// chosen paths.
namespace Orv::Engine {

QString pathText(const QByteArray& path);

// A walked entry's metadata as the stored formats keep it.
Kel::Archive::Node nodeOf(const WalkEntry& entry);

// Whether path is one of the chosen paths or lies below one (all are chosen
// when the list is empty).
bool selected(const QByteArray& path, const QList<QByteArray>& paths);

// Whether the folder lies on the way to a chosen path (so it is walked).
bool onTheWay(const QByteArray& path, const QList<QByteArray>& paths);

} // namespace Orv::Engine
