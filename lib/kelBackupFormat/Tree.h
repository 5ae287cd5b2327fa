#pragma once

#include "kelBackupFormat/Node.h"

#include <QByteArray>
#include <QVector>

namespace Kel::Archive {

// A folder's listing as stored: its nodes in byte order of their names. The
// same listing always encodes to the same bytes, so an unchanged folder gets
// the same id and is stored once.
QByteArray encodeTree(const QVector<Node>& nodes);
// False on bytes that are not a tree of this version, or that break its rules
// (a name that is empty, ".", "..", holds "/" or NUL, or repeats).
bool decodeTree(const QByteArray& bytes, QVector<Node>* nodes);

// Whether a name may stand in a tree: what a restore may create in a folder.
bool isValidName(const QByteArray& name);

} // namespace Kel::Archive
