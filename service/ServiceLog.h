#pragma once

#include <QLoggingCategory>

// Log categories of the service. Debug lines of all of them are switched off
// as a whole unless the log level asks for them, so that a busy service does
// not even format them.
Q_DECLARE_LOGGING_CATEGORY(lcService)
Q_DECLARE_LOGGING_CATEGORY(lcServer)
Q_DECLARE_LOGGING_CATEGORY(lcRequest)
Q_DECLARE_LOGGING_CATEGORY(lcConfig)
