#include "service/ServiceLog.h"

Q_LOGGING_CATEGORY(lcService, "orvd.service")
Q_LOGGING_CATEGORY(lcServer, "orvd.server")
Q_LOGGING_CATEGORY(lcRequest, "orvd.request")
Q_LOGGING_CATEGORY(lcConfig, "orvd.config")
