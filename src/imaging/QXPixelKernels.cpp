#include "imaging/QXPixelKernels_p.h"

#include <algorithm>
#include <cstring>
#include <vector>

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#include <immintrin.h>
#define QX_KERNELS_HAVE_AVX2 1
#define QX_TARGET_AVX2 __attribute__((target("avx2")))
#define QX_ALWAYS_INLINE inline __attribute__((always_inline))
#else
#define QX_KERNELS_HAVE_AVX2 0
#define QX_ALWAYS_INLINE inline
#endif

namespace QXPixelKernels {

namespace {

// ---------------------------------------------------------------------------
// Box convolution

/*
  Exact rounded division by the kernel area d = k² (k odd, so a quotient is
  never exactly half-way): round(s / d) = floor((s + (d − 1) / 2) / d), and
  the division by d is a multiplication by m = ceil(2^shift / d) and a
  shift. With n = s + (d − 1) / 2 < 256·d and 2^shift ≥ 256·d², the error
  term n·(m·d − 2^shift) / 2^shift stays below 1 and the quotient is exact
  for every window sum; m fits 32 bits as long as d < 2^23, which the
  kernel size limit guarantees.
*/
struct Divider
{
    quint32 half = 0;
    quint32 multiplier = 1;
    int shift = 0;

    explicit Divider(quint32 divisor)
    {
        half = (divisor - 1) / 2;
        const quint64 bound = quint64(256) * divisor * divisor;
        while ((quint64(1) << shift) < bound)
            ++shift;
        multiplier = quint32(((quint64(1) << shift) + divisor - 1) / divisor);
    }

    quint32 operator()(quint32 sum) const { return quint32((quint64(sum + half) * multiplier) >> shift); }
};

int normalizedKernelSize(int kernelSize)
{
    kernelSize = std::clamp(kernelSize, 1, kMaximumBoxKernelSize);
    return (kernelSize & 1) ? kernelSize : kernelSize + 1;
}

const uchar *rowAt(ConstBitmap bitmap, int y)
{
    return bitmap.bits + qsizetype(std::clamp(y, 0, bitmap.height - 1)) * bitmap.bytesPerLine;
}

// Vertical sums of the window around row 0, edge rows repeated.
QX_ALWAYS_INLINE void initialColumnSums(ConstBitmap source, int radius, quint32 *columns)
{
    const int count = 4 * source.width;
    const uchar *first = rowAt(source, 0);
    for (int i = 0; i < count; ++i)
        columns[i] = quint32(radius + 1) * first[i];
    const int lastRow = source.height - 1;
    for (int y = 1; y <= std::min(radius, lastRow); ++y) {
        const uchar *row = rowAt(source, y);
        for (int i = 0; i < count; ++i)
            columns[i] += row[i];
    }
    if (radius > lastRow) {
        const quint32 repeats = quint32(radius - lastRow);
        const uchar *last = rowAt(source, lastRow);
        for (int i = 0; i < count; ++i)
            columns[i] += repeats * last[i];
    }
}

// Horizontal window sum of pixel 0 of a row of vertical sums, edge repeated.
QX_ALWAYS_INLINE void initialRowSum(const quint32 *columns, int width, int radius, quint32 sum[4])
{
    for (int c = 0; c < 4; ++c)
        sum[c] = quint32(radius + 1) * columns[c];
    const int last = width - 1;
    for (int x = 1; x <= std::min(radius, last); ++x)
        for (int c = 0; c < 4; ++c)
            sum[c] += columns[4 * x + c];
    if (radius > last)
        for (int c = 0; c < 4; ++c)
            sum[c] += quint32(radius - last) * columns[4 * last + c];
}

// Unsigned wrap-around is intended: a sum never falls below what it holds.
void updateColumnSumsGeneric(const uchar *entering, const uchar *leaving, quint32 *columns, int count)
{
    for (int i = 0; i < count; ++i)
        columns[i] += quint32(entering[i]) - quint32(leaving[i]);
}

void filterRowGeneric(const quint32 *columns, int width, int radius, const Divider &divide, uchar *out)
{
    quint32 sum[4];
    initialRowSum(columns, width, radius, sum);
    for (int x = 0; x < width; ++x) {
        for (int c = 0; c < 4; ++c)
            out[4 * x + c] = uchar(divide(sum[c]));
        const quint32 *entering = columns + 4 * std::min(x + radius + 1, width - 1);
        const quint32 *leaving = columns + 4 * std::max(x - radius, 0);
        for (int c = 0; c < 4; ++c)
            sum[c] += entering[c] - leaving[c];
    }
}

#if QX_KERNELS_HAVE_AVX2

QX_TARGET_AVX2 void updateColumnSumsAvx2(const uchar *entering, const uchar *leaving, quint32 *columns, int count)
{
    int i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m256i in = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(entering + i)));
        const __m256i out = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(leaving + i)));
        const __m256i delta = _mm256_sub_epi16(in, out);
        __m256i *target = reinterpret_cast<__m256i *>(columns + i);
        const __m256i low = _mm256_cvtepi16_epi32(_mm256_castsi256_si128(delta));
        const __m256i high = _mm256_cvtepi16_epi32(_mm256_extracti128_si256(delta, 1));
        _mm256_storeu_si256(target, _mm256_add_epi32(_mm256_loadu_si256(target), low));
        _mm256_storeu_si256(target + 1, _mm256_add_epi32(_mm256_loadu_si256(target + 1), high));
    }
    updateColumnSumsGeneric(entering + i, leaving + i, columns + i, count - i);
}

struct DividerAvx2
{
    __m256i half;
    __m256i multiplier;
    __m128i shift;
};

// Eight sums (two pixels) divided; each result lane holds a value 0–255.
QX_TARGET_AVX2 QX_ALWAYS_INLINE __m256i divide8(__m256i sums, const DividerAvx2 &divider)
{
    const __m256i n = _mm256_add_epi32(sums, divider.half);
    const __m256i even = _mm256_srl_epi64(_mm256_mul_epu32(n, divider.multiplier), divider.shift);
    const __m256i odd = _mm256_srl_epi64(_mm256_mul_epu32(_mm256_srli_epi64(n, 32), divider.multiplier),
                                         divider.shift);
    return _mm256_or_si256(even, _mm256_slli_epi64(odd, 32));
}

QX_TARGET_AVX2 void filterRowAvx2(const quint32 *columns, int width, int radius, const Divider &divide,
                                  const DividerAvx2 &divider, uchar *out)
{
    const auto column = [columns](int x) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i *>(columns + 4 * x));
    };
    const int last = width - 1;
    // The window of pixel 0, two pixels per addition: its length grows
    // with the kernel, so it must not be a serial chain of its own.
    const int inside = std::min(radius, last);
    __m256i pairs = _mm256_setzero_si256();
    int i = 1;
    for (; i + 1 <= inside; i += 2)
        pairs = _mm256_add_epi32(pairs, _mm256_loadu_si256(reinterpret_cast<const __m256i *>(columns + 4 * i)));
    __m128i sum = _mm_add_epi32(_mm256_castsi256_si128(pairs), _mm256_extracti128_si256(pairs, 1));
    if (i <= inside)
        sum = _mm_add_epi32(sum, column(i));
    sum = _mm_add_epi32(sum, _mm_mullo_epi32(column(0), _mm_set1_epi32(radius + 1)));
    if (radius > last)
        sum = _mm_add_epi32(sum, _mm_mullo_epi32(column(last), _mm_set1_epi32(radius - last)));
    int x = 0;
    // Blocks of eight pixels: the running sums are a serial chain of one
    // addition per pixel; the divisions and packing of the block run
    // independently of it.
    for (; x + 8 <= width; x += 8) {
        __m128i sums[8];
        for (int i = 0; i < 8; ++i) {
            sums[i] = sum;
            const int p = x + i;
            const __m128i delta = _mm_sub_epi32(column(std::min(p + radius + 1, last)), column(std::max(p - radius, 0)));
            sum = _mm_add_epi32(sum, delta);
        }
        const __m256i q0 = divide8(_mm256_set_m128i(sums[1], sums[0]), divider);
        const __m256i q1 = divide8(_mm256_set_m128i(sums[3], sums[2]), divider);
        const __m256i q2 = divide8(_mm256_set_m128i(sums[5], sums[4]), divider);
        const __m256i q3 = divide8(_mm256_set_m128i(sums[7], sums[6]), divider);
        // Packing works per 128-bit lane: pixels 0 2 4 6 end up in the low
        // lane, 1 3 5 7 in the high one.
        const __m256i bytes = _mm256_packus_epi16(_mm256_packus_epi32(q0, q1), _mm256_packus_epi32(q2, q3));
        const __m256i ordered = _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + 4 * x), ordered);
    }
    quint32 rest[4];
    _mm_storeu_si128(reinterpret_cast<__m128i *>(rest), sum);
    for (; x < width; ++x) {
        for (int c = 0; c < 4; ++c)
            out[4 * x + c] = uchar(divide(rest[c]));
        const quint32 *entering = columns + 4 * std::min(x + radius + 1, last);
        const quint32 *leaving = columns + 4 * std::max(x - radius, 0);
        for (int c = 0; c < 4; ++c)
            rest[c] += entering[c] - leaving[c];
    }
}

QX_TARGET_AVX2 void boxConvolveAvx2(ConstBitmap source, Bitmap destination, int radius, const Divider &divide,
                                    quint32 *columns)
{
    DividerAvx2 divider;
    divider.half = _mm256_set1_epi32(int(divide.half));
    divider.multiplier = _mm256_set1_epi32(int(divide.multiplier));
    divider.shift = _mm_cvtsi32_si128(divide.shift);
    const int count = 4 * source.width;
    for (int y = 0; y < source.height; ++y) {
        filterRowAvx2(columns, source.width, radius, divide, divider,
                      destination.bits + qsizetype(y) * destination.bytesPerLine);
        if (y + 1 < source.height)
            updateColumnSumsAvx2(rowAt(source, y + radius + 1), rowAt(source, y - radius), columns, count);
    }
}

bool cpuHasAvx2()
{
    static const bool has = __builtin_cpu_supports("avx2") && qgetenv("QX_PIXEL_KERNELS") != "generic";
    return has;
}

#else

bool cpuHasAvx2()
{
    return false;
}

#endif

// ---------------------------------------------------------------------------
// Resampling

constexpr int kWeightBits = 14;
constexpr int kWeightOne = 1 << kWeightBits;
// The vertical pass keeps 7 fraction bits of a channel, so that its results
// (at most 255 × 128) fit a signed 16-bit multiply-add in the second pass.
constexpr int kFractionBits = 7;
constexpr int kVerticalShift = kWeightBits - kFractionBits;
constexpr int kHorizontalShift = kWeightBits + kFractionBits;

// For each destination index: the first source index and its weights. The
// weights of every index are padded with a zero to an even count, so that
// the AVX2 code can take them two at a time.
struct Taps
{
    std::vector<int> first;
    std::vector<int> offset; // weights of index i: [offset[i], offset[i + 1])
    std::vector<qint16> weights;
};

Taps makeTaps(int sourceSize, int destinationSize)
{
    Taps taps;
    taps.first.reserve(size_t(destinationSize));
    taps.offset.reserve(size_t(destinationSize) + 1);
    taps.offset.push_back(0);
    const double factor = double(sourceSize) / double(destinationSize);
    std::vector<double> real;
    for (int i = 0; i < destinationSize; ++i) {
        real.clear();
        int first = 0;
        if (sourceSize == destinationSize) {
            first = i;
            real.push_back(1.0);
        } else if (factor > 1.0) {
            // Reduction: the area of every source pixel under the destination pixel.
            const double begin = i * factor;
            const double end = std::min((i + 1) * factor, double(sourceSize));
            first = std::min(int(begin), sourceSize - 1);
            for (int j = first; j < sourceSize && j < end; ++j) {
                const double cover = std::min(double(j + 1), end) - std::max(double(j), begin);
                real.push_back(std::max(cover, 0.0) / factor);
            }
        } else {
            // Enlargement: linear between the two nearest pixel centres.
            const double centre = std::clamp((i + 0.5) * factor - 0.5, 0.0, double(sourceSize - 1));
            first = std::min(int(centre), sourceSize - 1);
            const double t = centre - first;
            real.push_back(1.0 - t);
            if (first + 1 < sourceSize)
                real.push_back(t);
        }
        // Fixed-point weights that sum to exactly one: rounding the running
        // total rather than each weight keeps every weight non-negative and
        // spreads the rounding error, even when thousands of source pixels
        // share one destination pixel.
        double cumulative = 0.0;
        int previous = 0;
        for (size_t t = 0; t < real.size(); ++t) {
            cumulative += real[t];
            const int rounded = t + 1 == real.size() ? kWeightOne
                                                     : std::min(int(cumulative * kWeightOne + 0.5), kWeightOne);
            taps.weights.push_back(qint16(rounded - previous));
            previous = rounded;
        }
        if (real.size() % 2)
            taps.weights.push_back(0);
        taps.first.push_back(first);
        taps.offset.push_back(int(taps.weights.size()));
    }
    return taps;
}

// One destination row: the weighted source rows, then the weighted pixels.
// `row` has room for one pixel more than the source row (a zero-weight tap
// may read it).
void scaleRowGeneric(ConstBitmap source, const Taps &rows, const Taps &columns, int y, qint32 *accumulator,
                     quint16 *row, uchar *out, int width)
{
    const int count = 4 * source.width;
    std::fill(accumulator, accumulator + count, 0);
    for (int t = rows.offset[y]; t < rows.offset[y + 1]; ++t) {
        const qint32 weight = rows.weights[size_t(t)];
        const uchar *line = rowAt(source, rows.first[y] + t - rows.offset[y]);
        for (int i = 0; i < count; ++i)
            accumulator[i] += weight * qint32(line[i]);
    }
    for (int i = 0; i < count; ++i)
        row[i] = quint16((accumulator[i] + (1 << (kVerticalShift - 1))) >> kVerticalShift);
    for (int x = 0; x < width; ++x) {
        qint32 sum[4] = {};
        const quint16 *pixel = row + 4 * columns.first[x];
        for (int t = columns.offset[x]; t < columns.offset[x + 1]; ++t, pixel += 4) {
            const qint32 weight = columns.weights[size_t(t)];
            for (int c = 0; c < 4; ++c)
                sum[c] += weight * qint32(pixel[c]);
        }
        for (int c = 0; c < 4; ++c)
            out[4 * x + c] = uchar(std::min((sum[c] + (1 << (kHorizontalShift - 1))) >> kHorizontalShift, 255));
    }
}

void scaleGeneric(ConstBitmap source, Bitmap destination, const Taps &rows, const Taps &columns)
{
    std::vector<qint32> accumulator(size_t(4) * size_t(source.width));
    std::vector<quint16> row(size_t(4) * (size_t(source.width) + 1));
    for (int y = 0; y < destination.height; ++y)
        scaleRowGeneric(source, rows, columns, y, accumulator.data(), row.data(),
                        destination.bits + qsizetype(y) * destination.bytesPerLine, destination.width);
}

#if QX_KERNELS_HAVE_AVX2

// Two 16-bit weights side by side, for _mm*_madd_epi16.
inline qint32 weightPair(const qint16 *weights)
{
    return qint32(quint16(weights[0])) | qint32(quint32(quint16(weights[1])) << 16);
}

QX_TARGET_AVX2 void scaleAvx2(ConstBitmap source, Bitmap destination, const Taps &rows, const Taps &columns)
{
    const int count = 4 * source.width;
    std::vector<quint16> row(size_t(4) * (size_t(source.width) + 1));
    std::vector<const uchar *> lines;
    std::vector<qint32> pairs;
    const __m128i interleave = _mm_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15);
    for (int y = 0; y < destination.height; ++y) {
        // Vertical: two source rows per multiply-add, sixteen channels at a time.
        lines.clear();
        pairs.clear();
        for (int t = rows.offset[y]; t < rows.offset[y + 1]; t += 2) {
            lines.push_back(rowAt(source, rows.first[y] + t - rows.offset[y]));
            lines.push_back(rowAt(source, rows.first[y] + t + 1 - rows.offset[y]));
            pairs.push_back(weightPair(&rows.weights[size_t(t)]));
        }
        const size_t pairCount = pairs.size();
        const __m256i rounding = _mm256_set1_epi32(1 << (kVerticalShift - 1));
        int i = 0;
        for (; i + 16 <= count; i += 16) {
            __m256i low = rounding;
            __m256i high = rounding;
            for (size_t p = 0; p < pairCount; ++p) {
                const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(lines[2 * p] + i));
                const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(lines[2 * p + 1] + i));
                const __m256i weight = _mm256_set1_epi32(pairs[p]);
                low = _mm256_add_epi32(low, _mm256_madd_epi16(_mm256_cvtepu8_epi16(_mm_unpacklo_epi8(a, b)), weight));
                high = _mm256_add_epi32(high, _mm256_madd_epi16(_mm256_cvtepu8_epi16(_mm_unpackhi_epi8(a, b)), weight));
            }
            low = _mm256_srai_epi32(low, kVerticalShift);
            high = _mm256_srai_epi32(high, kVerticalShift);
            const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi32(low, high), 0xd8);
            _mm256_storeu_si256(reinterpret_cast<__m256i *>(row.data() + i), packed);
        }
        for (; i < count; ++i) {
            qint32 sum = 1 << (kVerticalShift - 1);
            for (size_t p = 0; p < pairCount; ++p)
                sum += qint16(pairs[p] & 0xffff) * lines[2 * p][i] + qint16(pairs[p] >> 16) * lines[2 * p + 1][i];
            row[size_t(i)] = quint16(sum >> kVerticalShift);
        }
        row[size_t(count)] = row[size_t(count) + 1] = row[size_t(count) + 2] = row[size_t(count) + 3] = 0;

        // Horizontal: two source pixels per multiply-add, four channels at a time.
        uchar *out = destination.bits + qsizetype(y) * destination.bytesPerLine;
        const __m128i horizontalRounding = _mm_set1_epi32(1 << (kHorizontalShift - 1));
        for (int x = 0; x < destination.width; ++x) {
            __m128i sum = horizontalRounding;
            const quint16 *pixel = row.data() + 4 * columns.first[x];
            for (int t = columns.offset[x]; t < columns.offset[x + 1]; t += 2, pixel += 8) {
                const __m128i two = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(pixel)), interleave);
                sum = _mm_add_epi32(sum, _mm_madd_epi16(two, _mm_set1_epi32(weightPair(&columns.weights[size_t(t)]))));
            }
            sum = _mm_srai_epi32(sum, kHorizontalShift);
            const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(sum, sum), sum);
            const int value = _mm_cvtsi128_si32(bytes);
            std::memcpy(out + 4 * x, &value, 4);
        }
    }
}

#endif

// ---------------------------------------------------------------------------
// Colour matrix

template<typename Divide>
QX_ALWAYS_INLINE void matrixRows(ConstBitmap source, Bitmap destination, const std::array<qint16, 16> &matrix,
                                 Divide divide)
{
    qint32 m[16];
    for (int i = 0; i < 16; ++i)
        m[i] = matrix[size_t(i)];
    for (int y = 0; y < source.height; ++y) {
        const uchar *in = source.bits + qsizetype(y) * source.bytesPerLine;
        uchar *out = destination.bits + qsizetype(y) * destination.bytesPerLine;
        for (int x = 0; x < source.width; ++x, in += 4, out += 4) {
            qint32 channel[4];
            for (int c = 0; c < 4; ++c) {
                // At most 4 × 255 × 32768 in magnitude: no overflow in 32 bits.
                const qint32 sum = in[0] * m[c] + in[1] * m[4 + c] + in[2] * m[8 + c] + in[3] * m[12 + c];
                channel[c] = std::clamp(divide(sum), 0, 255);
            }
            const qint32 alpha = channel[3];
            out[0] = uchar(std::min(channel[0], alpha));
            out[1] = uchar(std::min(channel[1], alpha));
            out[2] = uchar(std::min(channel[2], alpha));
            out[3] = uchar(alpha);
        }
    }
}

// Rounded to the nearest, halves away from zero; a negative sum ends at 0
// after clamping whichever way it rounds, so only positive sums matter.
struct ShiftDivide
{
    int shift;
    qint32 half;
    qint32 operator()(qint32 sum) const { return (sum + half) >> shift; }
};

struct IntegerDivide
{
    qint32 divisor;
    qint32 operator()(qint32 sum) const { return sum <= 0 ? 0 : (sum + divisor / 2) / divisor; }
};

int powerOfTwoShift(int divisor)
{
    if (divisor & (divisor - 1))
        return -1;
    int shift = 0;
    while ((1 << shift) < divisor)
        ++shift;
    return shift;
}

void matrixGeneric(ConstBitmap source, Bitmap destination, const std::array<qint16, 16> &matrix, int divisor)
{
    const int shift = powerOfTwoShift(divisor);
    if (shift >= 0)
        matrixRows(source, destination, matrix, ShiftDivide{shift, divisor / 2});
    else
        matrixRows(source, destination, matrix, IntegerDivide{divisor});
}

#if QX_KERNELS_HAVE_AVX2
/*
  Four pixels at a time, for a power-of-two divisor. Each pixel's channels
  are widened to 16 bits and paired as (blue, green) and (red, alpha); one
  multiply-add of each pair with the matching two matrix rows gives the
  four output channels of the pixel at once.
*/
QX_TARGET_AVX2 void matrixShiftAvx2(ConstBitmap source, Bitmap destination, const std::array<qint16, 16> &matrix,
                                    int shift)
{
    alignas(32) qint16 blueGreen[16];
    alignas(32) qint16 redAlpha[16];
    for (int c = 0; c < 4; ++c) {
        blueGreen[2 * c] = blueGreen[8 + 2 * c] = matrix[size_t(c)];
        blueGreen[2 * c + 1] = blueGreen[8 + 2 * c + 1] = matrix[size_t(4 + c)];
        redAlpha[2 * c] = redAlpha[8 + 2 * c] = matrix[size_t(8 + c)];
        redAlpha[2 * c + 1] = redAlpha[8 + 2 * c + 1] = matrix[size_t(12 + c)];
    }
    const __m256i rowsBlueGreen = _mm256_load_si256(reinterpret_cast<const __m256i *>(blueGreen));
    const __m256i rowsRedAlpha = _mm256_load_si256(reinterpret_cast<const __m256i *>(redAlpha));
    // Within each 128-bit lane: two pixels of 16-bit channels.
    const __m256i firstBlueGreen = _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3));
    const __m256i firstRedAlpha = _mm256_broadcastsi128_si256(_mm_setr_epi8(4, 5, 6, 7, 4, 5, 6, 7, 4, 5, 6, 7, 4, 5, 6, 7));
    const __m256i secondBlueGreen = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(8, 9, 10, 11, 8, 9, 10, 11, 8, 9, 10, 11, 8, 9, 10, 11));
    const __m256i secondRedAlpha = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(12, 13, 14, 15, 12, 13, 14, 15, 12, 13, 14, 15, 12, 13, 14, 15));
    const __m256i alphas = _mm256_broadcastsi128_si256(_mm_setr_epi8(3, 3, 3, 3, 7, 7, 7, 7, 11, 11, 11, 11, 15, 15, 15, 15));
    const __m256i half = _mm256_set1_epi32(1 << shift >> 1);
    const __m128i count = _mm_cvtsi32_si128(shift);
    for (int y = 0; y < source.height; ++y) {
        const uchar *in = source.bits + qsizetype(y) * source.bytesPerLine;
        uchar *out = destination.bits + qsizetype(y) * destination.bytesPerLine;
        int x = 0;
        for (; x + 4 <= source.width; x += 4) {
            const __m256i pixels = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(in + 4 * x)));
            __m256i first = _mm256_add_epi32(_mm256_madd_epi16(_mm256_shuffle_epi8(pixels, firstBlueGreen), rowsBlueGreen),
                                             _mm256_madd_epi16(_mm256_shuffle_epi8(pixels, firstRedAlpha), rowsRedAlpha));
            __m256i second = _mm256_add_epi32(
                _mm256_madd_epi16(_mm256_shuffle_epi8(pixels, secondBlueGreen), rowsBlueGreen),
                _mm256_madd_epi16(_mm256_shuffle_epi8(pixels, secondRedAlpha), rowsRedAlpha));
            first = _mm256_sra_epi32(_mm256_add_epi32(first, half), count);
            second = _mm256_sra_epi32(_mm256_add_epi32(second, half), count);
            // Saturating packs clamp to 0–255; lane order stays pixel order.
            const __m256i words = _mm256_packs_epi32(first, second);
            __m256i bytes = _mm256_packus_epi16(words, words);
            bytes = _mm256_min_epu8(bytes, _mm256_shuffle_epi8(bytes, alphas));
            const __m256i joined = _mm256_permute4x64_epi64(bytes, 0x08);
            _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 4 * x), _mm256_castsi256_si128(joined));
        }
        if (x < source.width) {
            const ConstBitmap restIn{in + 4 * x, source.bytesPerLine, source.width - x, 1};
            const Bitmap restOut{out + 4 * x, destination.bytesPerLine, source.width - x, 1};
            matrixRows(restIn, restOut, matrix, ShiftDivide{shift, (1 << shift) >> 1});
        }
    }
}
#endif

bool usable(ConstBitmap bitmap)
{
    return bitmap.bits && bitmap.width > 0 && bitmap.height > 0 && bitmap.bytesPerLine >= 4 * qsizetype(bitmap.width);
}

} // namespace

void boxConvolve(ConstBitmap source, Bitmap destination, int kernelSize)
{
    if (!usable(source) || !usable(destination) || source.width != destination.width
        || source.height != destination.height)
        return;
    const int size = normalizedKernelSize(kernelSize);
    if (size == 1) {
        for (int y = 0; y < source.height; ++y)
            std::memcpy(destination.bits + qsizetype(y) * destination.bytesPerLine, rowAt(source, y),
                        size_t(4) * size_t(source.width));
        return;
    }
    const int radius = size / 2;
    const Divider divide(quint32(size) * quint32(size));
    const int count = 4 * source.width;
    std::vector<quint32> columns(static_cast<size_t>(count));
    initialColumnSums(source, radius, columns.data());
#if QX_KERNELS_HAVE_AVX2
    if (cpuHasAvx2()) {
        boxConvolveAvx2(source, destination, radius, divide, columns.data());
        return;
    }
#endif
    for (int y = 0; y < source.height; ++y) {
        filterRowGeneric(columns.data(), source.width, radius, divide,
                         destination.bits + qsizetype(y) * destination.bytesPerLine);
        if (y + 1 < source.height)
            updateColumnSumsGeneric(rowAt(source, y + radius + 1), rowAt(source, y - radius), columns.data(), count);
    }
}

void matrixMultiply(ConstBitmap source, Bitmap destination, const std::array<qint16, 16> &matrix, int divisor)
{
    if (!usable(source) || !usable(destination) || source.width != destination.width
        || source.height != destination.height)
        return;
    divisor = std::max(divisor, 1);
#if QX_KERNELS_HAVE_AVX2
    const int shift = powerOfTwoShift(divisor);
    if (cpuHasAvx2() && shift >= 0 && shift < 31)
        return matrixShiftAvx2(source, destination, matrix, shift);
#endif
    matrixGeneric(source, destination, matrix, divisor);
}

void scale(ConstBitmap source, Bitmap destination)
{
    if (!usable(source) || !usable(destination))
        return;
    const Taps rows = makeTaps(source.height, destination.height);
    const Taps columns = makeTaps(source.width, destination.width);
#if QX_KERNELS_HAVE_AVX2
    if (cpuHasAvx2())
        return scaleAvx2(source, destination, rows, columns);
#endif
    scaleGeneric(source, destination, rows, columns);
}

bool usesAvx2()
{
    return cpuHasAvx2();
}

} // namespace QXPixelKernels
