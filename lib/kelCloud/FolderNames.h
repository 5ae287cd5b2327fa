#pragma once

#include <QString>

namespace Kel::Cloud {

// Names of the folders beside a container folder, written in the form the
// configuration gives the container ("/srv/a/", "backups", "x/y"), so that
// the configured container is found among them by plain comparison.
class FolderNames
{
public:
    // "/" (or "//"...): a container without a parent.
    static bool isRoot(const QString& container);
    // The folder that holds the container, as a path to list ("" for the
    // current folder of a relative container).
    static QString parentOf(const QString& container);
    // The name of a folder beside the container, in the container's form.
    static QString sibling(const QString& container, const QString& folder);
};

} // namespace Kel::Cloud
