#pragma once

#include <QLoggingCategory>

// The log category of the account commands.
Q_DECLARE_LOGGING_CATEGORY(lcAccount)
