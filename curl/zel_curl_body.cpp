#include "zel_curl_obj.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr int defaultCapacity = 16384;
constexpr int mostReserved = 64 << 20; // however long the server says the body is

} // namespace

std::size_t CCurl::CurlWriteDataCallback(void* data, unsigned long size, unsigned long count, void* object) noexcept {
  return guardCallback(object, static_cast<std::size_t>(CURL_WRITEFUNC_ERROR),
                       [&](CCurl& self) { return self.takeBody(static_cast<const char*>(data), size, count); });
}

std::size_t CCurl::takeBody(const char* data, std::size_t size, std::size_t count) {
  if (m_cancelled != 0) return count;
  if (m_requestType == transfer::httpDelete && m_toBuf == 0) return count; // has no place for it
  if (!m_file.isOpen() && !m_buffer) CurlExamineHeader();
  if (m_buffer) {
    const auto bytes = static_cast<std::int64_t>(size * count);
    if (bufferLength() + bytes >= m_buffer->capacity - 1) m_buffer->capacity += bytes;
    m_buffer->data.append(data, size * count);
    return count;
  }
  if (!m_file.isOpen()) return 0;
  const std::size_t written = m_file.write(data, size * count);
  if (written < size * count) writeFault();
  return written / size;
}

void CCurl::CurlExamineHeader() {
  if (isHttp()) {
    CurlHttpParseRspHdr(m_rsp.header.data());
    m_headerExamined = m_requestType != transfer::httpDelete; // its message shows the body
    if (m_headerExamined) CurlHttpExamineHeaderMsg();
  }
  if (m_toBuf != 0) {
    const int length = m_rsp.contentLength;
    m_buffer.emplace(ReceiveBuffer{{}, length >= 1 ? length : defaultCapacity});
    m_buffer->data.reserve(static_cast<std::size_t>(std::min<std::int64_t>(m_buffer->capacity, mostReserved)));
    return;
  }
  if (responseFileName() == nullptr) return;
  transfer::Text name = *responseFileName();
  if (m_requestType == transfer::httpGet && m_set.extVers == 0) nameAfterType(name);
  if (!m_file.open(name.c_str())) return fileFault("file open failed. file: (" + name.str() + ")");
  m_rsp.file = name;
}

void CCurl::dropFile() noexcept {
  m_file.remove();
  m_rsp.file.clear();
}

void CCurl::writeFault() { fileFault("Failed to write the data into file, (" + m_file.path() + ")"); }

// More precise than libcurl's own error, which says only that the callback failed.
void CCurl::fileFault(const std::string& problem) {
  m_fault = problem + ": " + std::strerror(errno);
  m_message = transfer::formatLimited(transfer::messageLimit, "Error: %s", problem.c_str());
  tell(m_message);
}

std::size_t CCurl::CurlHttpPutPostPushCallback(void* buffer, unsigned long size, unsigned long count,
                                               void* object) noexcept {
  return guardCallback(object, static_cast<std::size_t>(CURL_READFUNC_ABORT),
                       [&](CCurl& self) { return self.supplyBody(static_cast<char*>(buffer), size * count); });
}

std::size_t CCurl::supplyBody(char* buffer, std::size_t size) {
  if (m_upload.position >= m_upload.size) return 0;
  if (m_cancelled != 0) {
    m_upload.file.reset();
    return CURL_READFUNC_ABORT;
  }
  std::size_t amount = std::min<std::size_t>(size, m_upload.size - m_upload.position);
  if (m_upload.data != nullptr)
    std::copy_n(m_upload.data + m_upload.position, amount, buffer);
  else
    amount = m_upload.file ? std::fread(buffer, 1, amount, m_upload.file.get()) : 0;
  if (amount == 0) {
    m_fault = "Failed to read the file to send (" + m_set.fileToSend.str() + ")";
    return CURL_READFUNC_ABORT;
  }
  m_upload.position += static_cast<std::int64_t>(amount);
  return amount;
}

int zelCurlOptSeekFunction(void* object, curl_off_t offset, int origin) noexcept {
  return object != nullptr ? static_cast<CCurl*>(object)->seekBody(offset, origin) : CURL_SEEKFUNC_OK;
}

int CCurl::seekBody(std::int64_t offset, int origin) noexcept {
  if (m_upload.data == nullptr && (!m_upload.file || ::fseeko(m_upload.file.get(), offset, origin) != 0))
    return CURL_SEEKFUNC_CANTSEEK;
  m_upload.position = offset;
  return CURL_SEEKFUNC_OK;
}
