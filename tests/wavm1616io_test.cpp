#include "io/wavm1616io.h"

#include <gtest/gtest.h>

#include "testfiles.h"

using namespace nalveo;

namespace {

using doubles = std::vector<double>;

doubles readwav(const std::string &bytes) {
    const tempfolder folder;
    writefile(folder / "in.wav", bytes);
    return readby(wavreadm1616, folder / "in.wav");
}

}  // namespace

TEST(wavreadm1616, scalesto32768ths) {
    EXPECT_EQ(readwav(wavbytes({-32768, 32767, 0, 1, -16384})),
              (doubles{-1.0, 0.999969482421875, 0.0, 1.0 / 32768.0, -0.5}));
    std::vector<std::int16_t> samples(200000);  // several steps of the reader's growing array
    for (std::size_t k = 0; k < samples.size(); ++k) samples[k] = static_cast<std::int16_t>(7 * k);
    const doubles read = readwav(wavbytes(samples));
    ASSERT_EQ(read.size(), samples.size());
    for (std::size_t k = 0; k < read.size(); ++k) ASSERT_EQ(read[k] * 32768.0, samples[k]) << k;
}

TEST(wavreadm1616, takesallthatdoesnotmatter) {
    const wavheader headers[] = {{.byterate = 7},
                                 {.align = 99},
                                 {.fmtsize = 17, .rest = "x"},
                                 {.fmtsize = 40, .rest = "data" + std::string(20, 'x')},
                                 {.fmtsize = 9016, .rest = std::string(9000, 'x')}};
    const doubles expected = {1.0 / 32768.0, -2.0 / 32768.0};
    for (const wavheader &header : headers) EXPECT_EQ(readwav(wavbytes({1, -2}, header)), expected);
    EXPECT_EQ(readwav(wavbytes({1, -2}) + "LIST"), expected);
    EXPECT_EQ(readwav(wavbytes({1, -2, 3}, {.datasize = 5})), expected) << "odd last byte";
}

TEST(wavreadm1616, takesnootherheader) {
    const wavheader headers[] = {{.riff = "RIFX"},
                                 {.wave = "AVI "},
                                 {.fmt = "fmt_"},
                                 {.data = "DATA"},
                                 {.format = 3},
                                 {.channels = 2},
                                 {.rate = 44100},
                                 {.rate = 0x10000 + 16000},
                                 {.bits = 24},
                                 {.fmtsize = 18},  // whose two bytes are not there
                                 {.fmtsize = 17, .rest = "xy"},
                                 {.fmtsize = 15},
                                 {.fmtsize = 0xffffffff},
                                 {.rest = std::string("LIST\4\0\0\0abcd", 12)},
                                 {.datasize = 0},
                                 {.datasize = 1},
                                 {.datasize = 9}};  // whose last byte is not there
    for (const wavheader &header : headers)
        EXPECT_TRUE(readwav(wavbytes({1, 2, 3, 4}, header)).empty()) << &header - headers;
}

TEST(wavreadm1616, refusesafilecutanywhere) {
    const std::string whole = wavbytes({1, 2, 3});
    for (std::size_t size = 0; size < whole.size(); ++size)
        EXPECT_TRUE(readwav(whole.substr(0, size)).empty()) << size;
    double *unset = nullptr;
    for (const char *path : {"", "/", "/no/such"}) EXPECT_EQ(wavreadm1616(path, &unset), 0U);
}

TEST(wavreadm1616, needsnomorememorythanthefilehasbytesfor) {
    const auto peak = [] {  // address space ever in use, KiB
        const std::string status = readfile("/proc/self/status").value();
        return std::stoll(status.substr(status.find("VmPeak:") + 7));
    };
    const long long before = peak();
    for (const std::uint32_t claim : {0x10000000U, 0x80000000U, 0xffffffffU})
        EXPECT_TRUE(readwav(wavbytes({1, 2, 3}, {.datasize = claim})).empty());
    EXPECT_LT(peak() - before, 64 * 1024) << "for a file of 50 bytes";
}

TEST(wavwritem1616, writeswhatareaderreads) {
    const tempfolder folder;
    const std::string path = folder / "out.wav";
    const double step = 1.0 / 32768.0;
    // Halves go up; what is beyond 16 bits is cut, never wrapped.
    const doubles x = {0.0,         step,         -1.0, 0.49 * step, 0.5 * step,
                       -0.5 * step, -0.51 * step, 1.0,  7.0,         -1.1};
    ASSERT_EQ(wavwritem1616(path.c_str(), x.data(), 10), 10U);
    EXPECT_EQ(readfile(path), wavbytes({0, 1, -32768, 0, 1, 0, -1, 32767, 32767, -32768}));
    EXPECT_EQ(wavwritem1616(nullptr, x.data(), 10), 0U);
    EXPECT_EQ(wavwritem1616(path.c_str(), x.data(), 0), 0U);
    EXPECT_EQ(wavwritem1616(path.c_str(), x.data(), mostwavsamples + 1), 0U);
    EXPECT_EQ(wavwritem1616("/no/such/folder", x.data(), 10), 0U);
    EXPECT_EQ(readfile(path)->size(), 64U);
}
