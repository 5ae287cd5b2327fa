#pragma once

#include <QString>

namespace Kel::Network {

// The name this machine goes by; backups default to it as their prefix.
class ComputerName
{
public:
    static QString name();
};

} // namespace Kel::Network
