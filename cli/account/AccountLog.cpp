#include "AccountLog.h"

Q_LOGGING_CATEGORY(lcAccount, "ORV")
