#include "ZipFile.h"

#include "HostError.h"

#include <limits>
#include <zlib.h>

namespace varnex::host
{

namespace
{

constexpr std::uint32_t ENTRY_MARK = 0x04034B50;
constexpr std::uint32_t DIRECTORY_MARK = 0x02014B50;
constexpr std::uint32_t END_MARK = 0x06054B50;
constexpr std::uint16_t VERSION = 20; // deflate
constexpr std::uint16_t UTF8_NAMES = 0x0800;
constexpr std::uint16_t DEFLATED = 8;

constexpr std::size_t ZLIB_HEAD_BYTES = 2; // what zlib puts around a deflated stream, and an archive does not have
constexpr std::size_t ZLIB_TAIL_BYTES = 4;

void Append16(std::string& bytes, std::uint32_t nValue)
{
    bytes += static_cast<char>(nValue & 0xFF);
    bytes += static_cast<char>(nValue >> 8 & 0xFF);
}

void Append32(std::string& bytes, std::uint32_t nValue)
{
    Append16(bytes, nValue & 0xFFFF);
    Append16(bytes, nValue >> 16);
}

// The format's sizes and places have 32 bits.
std::uint32_t Fitting(std::size_t nSize)
{
    if (nSize >= std::numeric_limits<std::uint32_t>::max())
    {
        throw HostError(L"The files are too large for a zip archive.");
    }
    return static_cast<std::uint32_t>(nSize);
}

std::string Deflated(const std::string& content)
{
    uLongf cbStream = compressBound(Fitting(content.size()));
    std::string stream(cbStream, '\0');
    if (compress(reinterpret_cast<Bytef*>(stream.data()), &cbStream, reinterpret_cast<const Bytef*>(content.data()),
                 static_cast<uLong>(content.size())) != Z_OK)
    {
        throw HostError(L"There is not enough memory to compress the files.");
    }
    return stream.substr(ZLIB_HEAD_BYTES, cbStream - ZLIB_HEAD_BYTES - ZLIB_TAIL_BYTES);
}

std::uint32_t DosTime(const SYSTEMTIME& time)
{
    const unsigned nYear = time.wYear < 1980U ? 0U : time.wYear - 1980U;
    return nYear << 25 | static_cast<unsigned>(time.wMonth) << 21 | static_cast<unsigned>(time.wDay) << 16 |
           static_cast<unsigned>(time.wHour) << 11 | static_cast<unsigned>(time.wMinute) << 5 | time.wSecond / 2U;
}

} // namespace

void ZipFile::Add(const std::wstring& name, const std::string& content, const SYSTEMTIME& time)
{
    const std::string utf8Name = ToUtf8(name);
    const std::string data = Deflated(content);
    std::string head; // what an entry and its line in the directory have in common
    Append16(head, VERSION);
    Append16(head, UTF8_NAMES);
    Append16(head, DEFLATED);
    Append32(head, DosTime(time));
    Append32(head, static_cast<std::uint32_t>(
                       crc32(0, reinterpret_cast<const Bytef*>(content.data()), static_cast<uInt>(content.size()))));
    Append32(head, Fitting(data.size()));
    Append32(head, Fitting(content.size()));
    Append16(head, static_cast<std::uint32_t>(utf8Name.size()));
    Append16(head, 0); // no extra field

    Append32(m_directory, DIRECTORY_MARK);
    Append16(m_directory, VERSION); // made by
    m_directory += head;
    Append16(m_directory, 0); // no comment
    Append16(m_directory, 0); // first disk
    Append16(m_directory, 0); // internal attributes
    Append32(m_directory, 0); // external attributes
    Append32(m_directory, Fitting(m_archive.size()));
    m_directory += utf8Name;

    Append32(m_archive, ENTRY_MARK);
    m_archive += head + utf8Name + data;
    ++m_nEntries;
}

std::string ZipFile::Finish()
{
    const std::uint32_t nDirectoryPlace = Fitting(m_archive.size());
    const std::uint32_t cbDirectory = Fitting(m_directory.size());
    m_archive += m_directory;
    Append32(m_archive, END_MARK);
    Append16(m_archive, 0); // this disk
    Append16(m_archive, 0); // the directory's disk
    Append16(m_archive, m_nEntries);
    Append16(m_archive, m_nEntries);
    Append32(m_archive, cbDirectory);
    Append32(m_archive, nDirectoryPlace);
    Append16(m_archive, 0); // no comment
    return std::move(m_archive);
}

} // namespace varnex::host
