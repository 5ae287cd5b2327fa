#pragma once

#include <QString>

typedef void CURL;

namespace Kel::Network {

// An easy handle of the HTTP library, made after the library's one-time
// process initialisation and cleaned up with the object.
class CurlHandle
{
public:
    CurlHandle();
    ~CurlHandle();
    CurlHandle(const CurlHandle&) = delete;
    CurlHandle& operator=(const CurlHandle&) = delete;

    // Null when the library could not be initialised.
    CURL* get() const { return m_curl; }
    explicit operator bool() const { return m_curl != nullptr; }

    // The library's own text for a failed transfer: the detailed message when
    // the handle collected one, the code's description otherwise.
    static QString errorText(int code, const char* detail);

private:
    CURL* m_curl = nullptr;
};

} // namespace Kel::Network
