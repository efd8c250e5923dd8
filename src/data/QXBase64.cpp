#include <QXFoundation/QXData.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr char base64EncodeLookup[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Value of every byte: its 6 bits for the 64 alphabet characters, the skip
// marker for everything else.
constexpr unsigned char xx = 65;
constexpr std::array<unsigned char, 256> base64DecodeLookup = [] {
    std::array<unsigned char, 256> table{};
    table.fill(xx);
    for (unsigned char i = 0; i < 64; ++i)
        table[static_cast<unsigned char>(base64EncodeLookup[i])] = i;
    return table;
}();

// The two characters of every 12-bit value: one lookup writes half a group.
struct CharPairs
{
    char pairs[4096][2];
    constexpr CharPairs() : pairs{}
    {
        for (int v = 0; v < 4096; ++v) {
            pairs[v][0] = base64EncodeLookup[v >> 6];
            pairs[v][1] = base64EncodeLookup[v & 0x3F];
        }
    }
};
constexpr CharPairs charPairs;

constexpr size_t inputBytesPerLine = 48;

// Encodes whole groups from in[i] while i + 2 < limit.
inline void encodeGroups(const unsigned char *in, size_t &i, size_t limit, char *out, size_t &j)
{
    while (i + 2 < limit) {
        const uint32_t bits = (uint32_t(in[i]) << 16) | (uint32_t(in[i + 1]) << 8) | in[i + 2];
        std::memcpy(out + j, charPairs.pairs[bits >> 12], 2);
        std::memcpy(out + j + 2, charPairs.pairs[bits & 0xFFF], 2);
        i += 3;
        j += 4;
    }
}

} // namespace

char *QXNewBase64Encode(const void *buffer, size_t length, bool separateLines, size_t *outputLength)
{
    const auto *in = static_cast<const unsigned char *>(buffer);
    size_t groups = length / 3 + (length % 3 ? 1 : 0);
    size_t capacity = groups * 4;
    if (separateLines)
        capacity += 2 * (groups / 16);
    char *out = static_cast<char *>(std::malloc(capacity + 1));
    if (!out)
        return nullptr;

    const size_t lineLength = separateLines ? inputBytesPerLine : length;
    size_t i = 0;
    size_t j = 0;
    size_t lineEnd = lineLength;
    for (;;) {
        const size_t limit = lineEnd < length ? lineEnd : length;
        encodeGroups(in, i, limit, out, j);
        if (lineEnd >= length)
            break;
        out[j++] = '\r';
        out[j++] = '\n';
        lineEnd += lineLength;
    }

    if (i + 1 < length) {
        out[j++] = base64EncodeLookup[in[i] >> 2];
        out[j++] = base64EncodeLookup[((in[i] & 0x03) << 4) | (in[i + 1] >> 4)];
        out[j++] = base64EncodeLookup[(in[i + 1] & 0x0F) << 2];
        out[j++] = '=';
    } else if (i < length) {
        out[j++] = base64EncodeLookup[in[i] >> 2];
        out[j++] = base64EncodeLookup[(in[i] & 0x03) << 4];
        out[j++] = '=';
        out[j++] = '=';
    }
    out[j] = '\0';
    if (outputLength)
        *outputLength = j;
    return out;
}

void *QXNewBase64Decode(const char *inputBuffer, size_t length, size_t *outputLength)
{
    if (length == SIZE_MAX)
        length = inputBuffer ? std::strlen(inputBuffer) : 0;
    const auto *in = reinterpret_cast<const unsigned char *>(inputBuffer);
    // (length + 3) / 4 groups of three bytes, written so it cannot overflow.
    const size_t capacity = (length / 4 + (length % 4 ? 1 : 0)) * 3;
    auto *out = static_cast<unsigned char *>(std::malloc(capacity ? capacity : 1));
    if (!out)
        return nullptr;

    size_t i = 0;
    size_t j = 0;
    while (i < length) {
        // Fast path: four alphabet characters in a row are one whole group.
        if (length - i >= 4) {
            const unsigned char a = base64DecodeLookup[in[i]];
            const unsigned char b = base64DecodeLookup[in[i + 1]];
            const unsigned char c = base64DecodeLookup[in[i + 2]];
            const unsigned char d = base64DecodeLookup[in[i + 3]];
            if ((a | b | c | d) < 64) {
                out[j] = static_cast<unsigned char>((a << 2) | (b >> 4));
                out[j + 1] = static_cast<unsigned char>((b << 4) | (c >> 2));
                out[j + 2] = static_cast<unsigned char>((c << 6) | d);
                i += 4;
                j += 3;
                continue;
            }
        }
        // Gather one group, skipping bytes outside the alphabet.
        unsigned char values[4];
        int k = 0;
        while (i < length && k < 4) {
            const unsigned char value = base64DecodeLookup[in[i++]];
            if (value != xx)
                values[k++] = value;
        }
        if (k >= 2)
            out[j++] = static_cast<unsigned char>((values[0] << 2) | (values[1] >> 4));
        if (k >= 3)
            out[j++] = static_cast<unsigned char>((values[1] << 4) | (values[2] >> 2));
        if (k == 4)
            out[j++] = static_cast<unsigned char>((values[2] << 6) | values[3]);
    }
    if (outputLength)
        *outputLength = j;
    return out;
}

QByteArray qx_dataFromBase64String(const QString &string)
{
    QByteArray ascii;
    ascii.reserve(string.size());
    for (const QChar c : string) {
        if (c.unicode() > 0x7F)
            return QByteArray("");
        ascii.append(char(c.unicode()));
    }
    size_t decodedLength = 0;
    void *decoded = QXNewBase64Decode(ascii.constData(), size_t(ascii.size()), &decodedLength);
    if (!decoded)
        return QByteArray("");
    QByteArray data(static_cast<const char *>(decoded), qsizetype(decodedLength));
    std::free(decoded);
    return data;
}

QString qx_base64EncodedString(const QByteArray &data)
{
    size_t encodedLength = 0;
    char *encoded = QXNewBase64Encode(data.constData(), size_t(data.size()), false, &encodedLength);
    if (!encoded)
        return QString();
    QString text = QString::fromLatin1(encoded, qsizetype(encodedLength));
    std::free(encoded);
    return text;
}
