// The synthesiser as it ships, run as a user runs it: every test in an empty folder of its own.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "nalveo.h"
#include "testfiles.h"

namespace {

using floats = std::vector<float>;

constexpr float unvoiced = -1e10F;
constexpr std::size_t nframes = 50;

class synth : public testing::Test {
   protected:
    // Voice of 200 Hz with silence to either side; a flat envelope of order 1.
    void SetUp() override {
        floats lf0(nframes, unvoiced), mcc, mvf(nframes, 0.0F);
        for (std::size_t k = 0; k < nframes; ++k) {
            const bool voiced = k >= 10 && k < 40;
            if (voiced) lf0[k] = std::log(200.0F);
            if (voiced) mvf[k] = 4000.0F;
            mcc.insert(mcc.end(), {voiced ? -3.0F : -8.0F, 0.0F});
        }
        put("lf0", floatbytes(lf0));
        put("mcc", floatbytes(mcc));
        put("mvf", floatbytes(mvf));
    }

    runresult run(const std::vector<std::string> &arguments) const {
        std::vector<std::string> all = {"me"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return runprogram(NALVEO_SYNTH, all, folder_ / "");
    }
    // A run that fails with this line and leaves no output.
    void refuse(const std::vector<std::string> &arguments, const std::string &line) const {
        const runresult result = run(arguments);
        EXPECT_EQ(result.out, line + '\n');
        EXPECT_EQ(result.status, 255) << line;
        EXPECT_FALSE(readfile(folder_ / "out.wav")) << line;
    }
    void put(const std::string &name, const std::string &bytes) const {
        writefile(folder_ / name, bytes);
    }
    // The files with one value replaced.
    void spoil(const std::string &name, std::size_t at, float value) const {
        floats values = floatsof(*readfile(folder_ / name));
        values[at] = value;
        put(name, floatbytes(values));
    }
    std::vector<int> samples() const {
        const std::string bytes = readfile(folder_ / "out.wav").value_or(std::string(44, '\0'));
        std::vector<int> values;
        for (std::size_t i = 44; i + 1 < bytes.size(); i += 2)
            values.push_back(
                static_cast<std::int16_t>(static_cast<unsigned char>(bytes[i]) |
                                          static_cast<unsigned char>(bytes[i + 1]) << 8));
        return values;
    }
    int peak() const {
        int highest = 0;
        for (const int x : samples()) highest = std::max(highest, std::abs(x));
        return highest;
    }

    tempfolder folder_;
};

}  // namespace

TEST_F(synth, tellsofitself) {
    const runresult help = run({});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("   me filef0 filecc [filefv] fileout [params]\n"), std::string::npos);
    for (const char *option :
         {"lframe=80 ", "alpha=0.42 ", "htsscale=1 ", "gain=0 ", "length=0 ", "seed=1 "})
        EXPECT_NE(help.out.find("   --" + std::string(option)), std::string::npos) << option;
    EXPECT_EQ(run({"--help"}).out, help.out);
    const runresult version = run({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, "nalveo16-synth " NALVEO_VERSION "\n");
}

TEST_F(synth, makesawaveform) {
    const runresult result = run({"lf0", "mcc", "mvf", "out.wav"});
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
    const std::string once = readfile(folder_ / "out.wav").value_or("");
    ASSERT_EQ(samples().size(), nframes * 80);
    // 20 harmonics of amplitude 2 sqrt(200) e^-8, peaks of 0.19, and hiss in the upper band.
    EXPECT_NEAR(peak() / 32768.0, 20 * 2 * std::sqrt(200.0) * std::exp(-8.0), 0.06);

    EXPECT_EQ(run({"lf0", "mcc", "mvf", "out.wav"}).status, 0);
    EXPECT_EQ(readfile(folder_ / "out.wav"), once);
    EXPECT_EQ(run({"lf0", "mcc", "mvf", "out.wav", "--seed=2"}).status, 0);
    EXPECT_NE(readfile(folder_ / "out.wav"), once);

    const runresult voiceonly = run({"lf0", "mcc", "out.wav"});
    EXPECT_EQ(voiceonly.out,
              "Warning: no maximum voiced frequencies, voiced frames are harmonics only.\n");
    EXPECT_EQ(voiceonly.status, 0);
    EXPECT_EQ(samples().size(), nframes * 80);
}

TEST_F(synth, obeysitsoptions) {
    ASSERT_EQ(run({"lf0", "mcc", "mvf", "out.wav"}).status, 0);
    const std::vector<int> usual = samples();
    ASSERT_EQ(run({"lf0", "mcc", "mvf", "out.wav", "--LENGTH=1000", "--gain=-20"}).status, 0);
    const std::vector<int> quiet = samples();
    ASSERT_EQ(quiet.size(), 1000U);
    for (std::size_t n = 0; n < quiet.size(); ++n) EXPECT_NEAR(quiet[n], 0.1 * usual[n], 0.6);

    ASSERT_EQ(run({"lf0", "mcc", "mvf", "out.wav", "--length=1"}).status, 0);
    EXPECT_EQ(samples().size(), 1U);
    ASSERT_EQ(run({"lf0", "mcc", "mvf", "out.wav", "--lframe=40"}).status, 0);
    EXPECT_EQ(samples().size(), nframes * 40);
    // Without the scaling for HTS, the same c(0) is 43 dB louder: beyond full scale.
    const runresult loud = run({"lf0", "mcc", "mvf", "out.wav", "--htsscale=0"});
    EXPECT_EQ(loud.out.substr(0, 31), "Warning: out.wav has been made ");
    EXPECT_EQ(loud.status, 0);
    EXPECT_EQ(peak(), 32767);
}

TEST_F(synth, refuseswrongarguments) {
    const std::string wrong = "Error: incorrect input arguments.\nType 'me' for help.";
    refuse({"lf0", "out.wav"}, wrong);
    refuse({"lf0", "mcc", "mvf", "out.wav", "more"}, wrong);
    refuse({"lf0", "mcc", "mvf", "out.wav", "--speed=1"}, wrong);
    refuse({"lf0", "mcc", "mvf", "out.wav", "--gain=loud"}, wrong);
    refuse({"lf0", "mcc", "mvf", "out.wav", "--seed=1", "--seed=1"}, wrong);
    refuse({"--seed=1", "lf0", "mcc", "out.wav"}, wrong);
    const auto option = [&](const std::string &given, const std::string &rest) {
        refuse({"lf0", "mcc", "mvf", "out.wav", "--" + given}, "Error: " + rest);
    };
    option("lframe=0", "lframe is 0, but must be from 1 to 1048576.");
    option("alpha=1", "alpha is 1, but must be above -1 and below 1.");
    option("gain=nan", "gain is nan, but must be from -100 to 100.");
    const std::string seeds = ", but must be a whole number from 0 to 2147483647.";
    option("seed=-1", "seed is -1" + seeds);
    option("seed=2147483648", "seed is 2147483648" + seeds);
    option("seed=1.5", "seed is 1.5" + seeds);
    option("length=-1", "length is -1, but must be at least 0.");
    option("length=4001", "length is 4001, but the tracks end after 4000 samples.");
}

TEST_F(synth, refuseswhatdoesnotfittogether) {
    refuse({"lf0", "mcc", "lf0", "out.wav"}, "Error: lf0 and lf0 are the same file.");
    refuse({"lf0", "mcc", "none", "out.wav"}, "Error: could not open none.");
    put("empty", "abc");
    refuse({"empty", "mcc", "out.wav"}, "Error: empty is empty.");
    put("short", floatbytes(floats(49, 0.0F)));
    refuse({"lf0", "mcc", "short", "out.wav"},
           "Error: short holds 49 values, but lf0 has 50 frames.");
    refuse({"lf0", "short", "out.wav"},
           "Error: short holds 49 values, which is no multiple of the 50 frames of lf0.");
    put("odd", *readfile(folder_ / "lf0") + 'x');
    refuse({"odd", "mcc", "out.wav"},
           "Error: odd has 201 bytes; a file of float32 has a multiple of 4.");
    put("wide", floatbytes(floats(nframes * 513, 0.0F)));
    refuse({"lf0", "wide", "out.wav"},
           "Error: wide holds 513 values for each of the 50 frames of lf0; at most 512 are "
           "possible.");
    put("long", floatbytes(floats(2100, unvoiced)));
    put("flat", floatbytes(floats(2100, 0.0F)));
    refuse({"long", "flat", "out.wav", "--lframe=1048576"},
           "Error: the tracks make 2202009600 samples; a WAV file holds at most 2147483629.");
    const std::string before = *readfile(folder_ / "mcc");
    const runresult over = run({"lf0", "mcc", "mvf", "./mcc"});
    EXPECT_EQ(over.out, "Error: ./mcc and mcc are the same file.\n");
    EXPECT_EQ(readfile(folder_ / "mcc"), before);
    EXPECT_EQ(run({"lf0", "mcc", "mvf", "no/out.wav"}).out,
              "Error: could not create no/out.wav.\n");
}

TEST_F(synth, refusesvaluesthatcannotbesound) {
    const std::vector<std::string> files = {"lf0", "mcc", "mvf", "out.wav"};
    const std::string range = "; a log f0 must be from 2.7 to 8.98, or -1e+10 for unvoiced.";
    spoil("lf0", 12, 200.0F);
    refuse(files, "Error: lf0 holds 200 for frame 12" + range);
    spoil("lf0", 12, std::numeric_limits<float>::quiet_NaN());
    refuse(files, "Error: lf0 holds nan for frame 12" + range);
    SetUp();
    spoil("mcc", 2 * 7 + 1, std::numeric_limits<float>::infinity());
    refuse(files,
           "Error: mcc holds inf for frame 7; a cepstral coefficient must be from -100 to 100.");
    SetUp();
    spoil("mvf", 49, 8001.0F);
    refuse(files,
           "Error: mvf holds 8001 for frame 49; a maximum voiced frequency must be from 0 to "
           "8000.");
}
