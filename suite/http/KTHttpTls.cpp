#include "suite/http/KTHttpTls.h"

#include <gnutls/gnutls.h>

#include "suite/http/KTHttpFiles.h"

namespace
{
constexpr std::size_t fileLimit = 1024 * 1024;

gnutls_datum_t Datum(std::string& text)
{
    return {reinterpret_cast<unsigned char*>(text.data()), static_cast<unsigned>(text.size())};
}
}  // namespace

bool KTHttpTls::Load(const std::string& certificateFile, const std::string& keyFile, std::string& error)
{
    const bool haveCertificate = ReadWholeFile(certificateFile, fileLimit, certificate);
    if (!haveCertificate || !ReadWholeFile(keyFile, fileLimit, key))
    {
        error = haveCertificate ? "can't read the key " + keyFile : "can't read the certificate " + certificateFile;
        return false;
    }

    gnutls_certificate_credentials_t credentials = nullptr;
    int code = gnutls_certificate_allocate_credentials(&credentials);
    if (code == GNUTLS_E_SUCCESS)
    {
        const gnutls_datum_t certificateText = Datum(certificate);
        const gnutls_datum_t keyText = Datum(key);
        code = gnutls_certificate_set_x509_key_mem(credentials, &certificateText, &keyText, GNUTLS_X509_FMT_PEM);
        gnutls_certificate_free_credentials(credentials);
    }
    if (code >= 0) return true;
    error = "can't use the certificate " + certificateFile + " with the key " + keyFile + ": " + gnutls_strerror(code);
    return false;
}
