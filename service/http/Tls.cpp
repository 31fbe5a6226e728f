#include "service/http/Tls.h"

#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <new>

namespace nulo::service {

TlsContext::TlsContext(SSL_CTX* context) : m_context(context, SSL_CTX_free) {
    if (!m_context)
        throw std::bad_alloc();
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                                  SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_IGNORE_UNEXPECTED_EOF);
}

Result<std::unique_ptr<TlsContext>> TlsContext::load(const TlsFiles& files) {
    std::unique_ptr<TlsContext> context(new TlsContext(SSL_CTX_new(TLS_server_method())));
    SSL_CTX* raw = context->get();
    ERR_clear_error();
    // A key with a pass phrase would otherwise ask for it on a terminal.
    SSL_CTX_set_default_passwd_cb(raw, [](char*, int, int, void*) { return 0; });
    if (SSL_CTX_use_certificate_chain_file(raw, files.certificate.c_str()) != 1)
        return Error{"tls.certificate: " + files.certificate.string() +
                     " is not a readable PEM file with a certificate"};
    if (SSL_CTX_use_PrivateKey_file(raw, files.key.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_check_private_key(raw) != 1) {
        ERR_clear_error();
        return Error{"tls.key: " + files.key.string() +
                     " is not a readable PEM file, without a pass phrase, with the key of the "
                     "certificate"};
    }
    return context;
}

Wire::Wire(int socket, const TlsContext* tls)
    : m_socket(socket), m_tls(tls ? SSL_new(tls->get()) : nullptr, SSL_free) {
    if (!tls)
        return;
    if (!m_tls)
        throw std::bad_alloc();
    fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) | O_NONBLOCK);
    SSL_set_fd(m_tls.get(), socket);
    SSL_set_accept_state(m_tls.get());
}

Wire::Outcome Wire::receive(char* target, std::size_t room) {
    if (m_tls) {
        ERR_clear_error();
        return outcomeOf(
            SSL_read(m_tls.get(), target, static_cast<int>(std::min<std::size_t>(room, INT_MAX))));
    }
    const ssize_t count = recv(m_socket, target, room, MSG_DONTWAIT);
    if (count < 0 && (errno == EINTR || errno == EAGAIN))
        return {0, POLLIN};
    return {std::max<ssize_t>(count, 0), 0};
}

Wire::Outcome Wire::send(const char* data, std::size_t size) {
    if (m_tls) {
        ERR_clear_error();
        return outcomeOf(
            SSL_write(m_tls.get(), data, static_cast<int>(std::min<std::size_t>(size, INT_MAX))));
    }
    const ssize_t count = ::send(m_socket, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && (errno == EINTR || errno == EAGAIN))
        return {0, POLLOUT};
    return {std::max<ssize_t>(count, 0), 0};
}

Wire::Outcome Wire::outcomeOf(int result) {
    if (result > 0)
        return {result, 0};
    switch (SSL_get_error(m_tls.get(), result)) {
        case SSL_ERROR_WANT_READ:
            return {0, POLLIN};
        case SSL_ERROR_WANT_WRITE:
            return {0, POLLOUT};
        case SSL_ERROR_ZERO_RETURN:
            return {};
        default:
            m_failed = true;
            return {};
    }
}

void Wire::end() {
    if (m_tls && !m_failed && SSL_is_init_finished(m_tls.get())) {
        ERR_clear_error();
        SSL_shutdown(m_tls.get());
    }
    shutdown(m_socket, SHUT_WR);
}

}  // namespace nulo::service
