#include "kelNetwork/CurlHandle.h"

#include <curl/curl.h>
#include <mutex>

namespace Kel::Network {

namespace {

bool globalInit()
{
    static std::once_flag once;
    static bool ok = false;
    std::call_once(once, [] { ok = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK; });
    return ok;
}

} // namespace

CurlHandle::CurlHandle()
{
    if (globalInit())
        m_curl = curl_easy_init();
}

CurlHandle::~CurlHandle()
{
    if (m_curl)
        curl_easy_cleanup(m_curl);
}

QString CurlHandle::errorText(int code, const char* detail)
{
    if (detail && *detail)
        return QString::fromUtf8(detail).trimmed();
    return QString::fromUtf8(curl_easy_strerror(static_cast<CURLcode>(code)));
}

} // namespace Kel::Network
