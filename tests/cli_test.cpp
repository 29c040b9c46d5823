// The program as it ships, run as a user runs it: every test in an empty folder of its own.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <numbers>
#include <sstream>

#include "testfiles.h"

namespace {

using floats = std::vector<float>;
using shorts = std::vector<std::int16_t>;

constexpr float unvoiced = -1e10F;
constexpr double voicef0 = 125.0;        // Hz
constexpr std::size_t voiceframes = 61;  // of the voice, at 80 samples each
const std::string wrongarguments = "Error: incorrect input arguments.\nType 'me' for help.\n";

std::vector<std::string> split(const std::string &text, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
    return parts;
}

// A buzz of 20 harmonics in noise: voiced throughout, and never many equal samples in a row.
shorts voice() {
    shorts samples((voiceframes - 1) * 80 + 1);
    std::uint32_t noise = 1;
    for (std::size_t n = 0; n < samples.size(); ++n) {
        const double theta = 2.0 * std::numbers::pi * voicef0 / 16000.0 * static_cast<double>(n);
        double x = 0.0;
        for (int k = 1; k <= 20; ++k) x += std::cos(k * theta + k * k) / k;
        noise = noise * 1664525U + 1013904223U;
        samples[n] = static_cast<std::int16_t>(4000.0 * x + (noise >> 22));
    }
    return samples;
}

bool allfinite(const floats &values) {
    return std::all_of(values.begin(), values.end(), [](float v) { return std::isfinite(v); });
}

class cli : public testing::Test {
   protected:
    // A run with arguments between bars, of which the first is the program's own name.
    runresult run(const std::string &arguments) const {
        return runprogram(NALVEO_PROGRAM, split(arguments, '|'), folder_ / "");
    }
    // What a run with these options and files prints that ends well.
    std::string succeed(const std::string &arguments) const {
        const runresult result = run("me|" + arguments);
        EXPECT_EQ(result.status, 0) << arguments;
        return result.out;
    }
    // What a shell prints that runs a script with the program as $0, and ends well.
    std::string shell(const std::string &script) const {
        const runresult result =
            runprogram("/bin/sh", {"sh", "-c", script, NALVEO_PROGRAM}, folder_ / "");
        EXPECT_EQ(result.status, 0) << script;
        return result.out;
    }
    void put(const std::string &name, const std::string &bytes) const {
        writefile(folder_ / name, bytes);
    }
    std::string get(const std::string &name) const {
        return readfile(folder_ / name).value_or("none");
    }
    floats values(const std::string &name) const {
        return floatsof(readfile(folder_ / name).value_or(""));
    }

    tempfolder folder_;
};

}  // namespace

TEST_F(cli, helpsayswhatitalwayssays) {
    const runresult help = run("some/where\\else");
    EXPECT_EQ(help.status, 0);
    const std::vector<std::string> lines = split(help.out, '\n');
    ASSERT_EQ(lines.size(), 61U);
    const std::string rest = R"(
  Usage:
   else filein filef0 filecc filefv [params]

  Arguments:
   filein: input wav file (mono 16kHz 16bits)
   filef0: output file for logf0
   filecc: output file for cepstral coeffs.
   filefv: output file for max. voiced freq.

  Optional parameters and default values:
   --lframe=80     Frame shift (samples)
   --ccord=39      Order of the cepstral representation
   --ccmeth=1      0: harmonics + interpolation + mcep
                   1: harmonics + mel-rdc
                   2: quasi-harmonics + mel-rdc
                   3: complementary windows + liftering + mcep
                   4: seevoc + mcep
   --f0min=60      Lowest detectable pitch (Hz)
   --f0max=500     Highest detectable pitch (Hz)
   --f0acc=0       f0 refinement iterations using qhm [0...5]
   --f0load=0      Load+overwrite external logf0 file


)";
    EXPECT_EQ(help.out.substr(help.out.find("\n\n  Usage:") + 1), rest);
}

// The input does not exist: "could not open" tells that the arguments were accepted.
TEST_F(cli, findserrorsinafixedorder) {
    const std::string accepted = "Error: could not open in.wav.\n";
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {accepted,
         {"f|c", "f|c|v", "f|c|--lframe=80abc|--CCord=3|--F0MIN=70.5", "f|c|--lframe= 90| stray",
          "f|c|--f0max=1|--f0min=-1|--alpha=.999", "f|c|--ccord=511|--f0min=1",
          "f|c|--f0min=-inf|--f0max=-inf", "f|c|--ccmeth=257|--zfill=-1|--htsscale=7",
          "f|c|v|--f0acc=1|--f0load=1|--cctimeit=1"}},
        {wrongarguments,
         {"f", "--indlist=x", "f|--lframe=80", "f|c|v|more", "f|c|--lframe=80|v",
          "f|c|--lframe=80||--alpha=0", "f|c|--lframe=80|--lframe=100", "f|c|--lframe=abc",
          "f|c|--lframe=", "f|c|--lframe", "f|c|--=3", "f|c|--lfram=80", "f|c|--lframes=80",
          "f|c|--indlist=1|--indlist=2", "f|c|--indlist=1|--unknown=1", "f|c|--lframe=2147483648"}},
        {"Error: bad formatted indlist.\n",
         {"f|c|--indlist=5-3|--lframe=0|--unknown=1|v", "f|c|--indlist=1-3(0|--indlist=1",
          "--alpha=0|--INDLIST=-3"}},
        {"Error: lframe is 0, but must be at least 1.\n", {"f|c|--lframe=0|--indlist=1|--bad=1"}},
        {"Error: lframe is -2147483648, but must be at least 1.\n", {"f|c|--lframe=-2147483648"}},
        {"Error: ccord is -1, but must be from 0 to 511.\n", {"f|c|--ccord=-1|--unknown=1"}},
        {"Error: ccord is 512, but must be from 0 to 511.\n", {"f|c|v|--ccord=512"}},
        {"Error: alpha is -1, but must be above -1 and below 1.\n", {"f|c|--alpha=-1"}},
        {"Error: alpha is nan, but must be above -1 and below 1.\n", {"f|c|--alpha=nan"}},
        {"Error: f0min is 0.9999, but must be at least 1, or 0 or less for 60.\n",
         {"f|c|--f0min=0.9999"}},
        {"Error: f0min is inf, but must be at least 1, or 0 or less for 60.\n",
         {"f|c|--f0min=infinity"}},
        {"Error: f0max is inf, but must be a finite number.\n", {"f|c|--f0max=1e999"}},
        {"Error: f0max is nan, but must be a finite number.\n", {"f|c|--f0max=nan"}},
        {"Error: cctimeit is -1, but must be at least 0.\n", {"f|c|--cctimeit=-1"}},
        {"Error: no index field in in.wav.\n", {"f|c|--indlist=1"}}};
    for (const auto &[out, list] : cases)
        for (const std::string &arguments : list) {
            const runresult result = run("a/me|in.wav|" + arguments);
            EXPECT_EQ(result.out, out) << arguments;
            EXPECT_EQ(result.status, out == accepted ? 0 : 255) << arguments;
        }
    EXPECT_EQ(run("me|i1|f1|c1|v|--indlist=1").out, "Error: no index field in v.\n");
    EXPECT_EQ(run("--lframe=80|i|f|c").status, 255) << "a program named like an option";
}

TEST_F(cli, visitstheindicesofalist) {
    const std::pair<std::string, std::string> cases[] = {
        {"utt????.wav|--indlist=1-3,5", "utt0001.wav|utt0002.wav|utt0003.wav|utt0005.wav"},
        {"u?|--indlist=1-3-5", "u1|u2|u3"},
        {"d9/u?_?.wav|--indlist=0", "d9/u0_?.wav"},
        {"u44|--indlist=007-8(1)x,9", "u07|u08"},
        {"u?|--indlist=1-2-5,7,8-9", "u1|u2|u7|u8|u9"},
        {"??????????|--indlist=1410065406-1410065407", "1410065406|1410065407"}};
    for (const auto &[arguments, visited] : cases) {
        const std::vector<std::string> parts = split(arguments, '|');
        std::string expected;
        for (const std::string &name : split(visited, '|'))
            expected.append(name).append("\nError: could not open ").append(name).append(".\n");
        EXPECT_EQ(succeed(parts[0] + "|f??????????|c??????????|" + parts[1]), expected)
            << arguments;
    }
}

// A name that an index does not fit keeps its text, and with it the index before.
TEST_F(cli, saysthatanindexdoesnotfit) {
    const auto warning = [](const std::string &index, const std::string &name) {
        return "Warning: " + index + " does not fit the index field of " + name + ".\n";
    };
    EXPECT_EQ(succeed("u?|f??|c00|--indlist=9-11"),
              "u9\nError: could not open u9.\n"
              "u9\n" +
                  warning("10", "u9") +
                  "Error: could not open u9.\n"
                  "u9\n" +
                  warning("11", "u9") + "Error: could not open u9.\n");
    put("u123", wavbytes(shorts(1, 1)));
    EXPECT_EQ(succeed("u???|f??|c?|v1??|--indlist=123"),
              "u123\n" + warning("123", "f??") + warning("123", "c?"));
    EXPECT_EQ(values("f??").size(), 1U);
}

TEST_F(cli, abatchmakesthefilesofeveryindexandtimesthefirst) {
    const shorts samples = voice();
    put("in09.wav", wavbytes(samples));
    put("in10.wav", wavbytes({samples.begin() + 1000, samples.begin() + 2000}));
    const std::vector<std::string> lines =
        split(succeed("in??.wav|?.f|c??|v00|--indlist=8-10|--cctimeit=3"), '\n');
    ASSERT_EQ(lines.size(), 6U);
    EXPECT_EQ(lines[1], "Error: could not open in08.wav.");
    EXPECT_EQ(lines[2], "in09.wav");
    EXPECT_EQ(lines[3].substr(0, 6), "Time: ") << "the first that could be opened";
    EXPECT_EQ(lines[3].find_first_not_of("0123456789", 6), std::string::npos) << lines[3];
    EXPECT_EQ(lines[4], "in10.wav");
    EXPECT_EQ(lines[5], "Warning: 10 does not fit the index field of 9.f.");
    EXPECT_EQ(values("c09").size(), voiceframes * 40);
    EXPECT_EQ(values("c10").size(), 13 * 40U);
    EXPECT_EQ(values("v10").size(), 13U);
    EXPECT_EQ(values("9.f").size(), 13U) << "the name is still that of index 9";
    succeed("in09.wav|f|c");
    EXPECT_EQ(get("c"), get("c09")) << "repeating must not change the result";
}

// The second recording comes only after the lines on the first have been read.
TEST_F(cli, alogisuptodate) {
    put("1.wav", wavbytes(shorts(400, 7)));
    EXPECT_EQ(shell("mkfifo 2.wav; timeout 10 \"$0\" '?.wav' 'f?' 'c?' --indlist=1-2 | {\n"
                    "read name && read warning && cat 1.wav >2.wav; echo \"$warning\"; cat; }"),
              "Warning: zeros in 1.wav have been filled with noise.\n2.wav\n"
              "Warning: zeros in 2.wav have been filled with noise.\n");
}

TEST_F(cli, outputsdescribethevoice) {
    put("one.wav", wavbytes({7}));
    EXPECT_EQ(succeed("one.wav|f|c|v|--ccord=3"), "");
    EXPECT_EQ(get("f"), floatbytes({unvoiced}));
    EXPECT_TRUE(values("c").size() == 4 && values("v").size() == 1);
    put("in.wav", wavbytes(voice()));
    EXPECT_EQ(succeed("in.wav|f|c|v"), "");
    const floats f0 = values("f");
    ASSERT_EQ(f0.size(), voiceframes);
    // Away from the ends, within what a parabola through the autocorrelation leaves, here 0.5 %.
    for (std::size_t k = 10; k < 50; ++k) EXPECT_NEAR(f0[k], std::log(voicef0), 0.005) << k;
    succeed("in.wav|f|c|--f0min=160");
    for (const float f : values("f")) EXPECT_TRUE(f == unvoiced || f > std::log(155.0F)) << f;
    succeed("in.wav|f|c|--f0max=100");
    for (const float f : values("f")) EXPECT_LT(f, std::log(105.0F));
    // The shift is rounded to float once, by 2^-20 at most for values up to 16; doubling is exact.
    succeed("in.wav|f|hts|--ccord=9");
    succeed("in.wav|f|c|--ccord=9|--htsscale=2");
    const floats hts = values("hts"), plain = values("c");
    ASSERT_EQ(hts.size(), voiceframes * 10);
    for (std::size_t i = 0; i < hts.size(); ++i)
        EXPECT_NEAR(hts[i], i % 10 == 0 ? plain[i] + 5.0 : plain[i] * 2.0, 1e-6) << i;
    succeed("in.wav|f|hts|--ccord=9|--alpha=0.3");
    EXPECT_NE(values("hts"), hts);
}

class everymethod : public cli, public testing::WithParamInterface<int> {};

TEST_P(everymethod, takesanyrefinementandafourthfile) {
    put("in.wav", wavbytes(voice()));
    const std::string method = "|--ccmeth=" + std::to_string(GetParam());
    for (const std::string f0acc : {"0", "1", "5", "6"})
        for (const std::string v : {"", "v"}) {
            const std::string f = v + "f" + f0acc, c = v + "c" + f0acc;
            const std::string files = "in.wav|" + f + '|' + c + (v.empty() ? "" : "|v");
            EXPECT_EQ(succeed(files + method + "|--f0acc=" + f0acc), "");
            EXPECT_TRUE(values(f).size() == voiceframes && values(c).size() == voiceframes * 40);
            EXPECT_TRUE(allfinite(values(f)) && allfinite(values(c)) && allfinite(values("v")));
        }
    EXPECT_EQ(get("c0"), get("vc0")) << "the fourth file must not change the others";
    EXPECT_NE(get("f1"), get("vf1")) << "but its band bounds the refinement";
    EXPECT_NE(get("f0"), get("f1"));
    EXPECT_NE(get("f1"), get("f5"));
    EXPECT_TRUE(get("f5") == get("f6") && get("c5") == get("c6")) << "5 is the most";
    succeed("in.wav|f|c|--ccmeth=" + std::to_string(GetParam() + 256));
    EXPECT_EQ(get("c"), get("c0")) << "the low 8 bits count";
    if (GetParam() != 1) succeed("in.wav|f|c");
    EXPECT_EQ(get("c") == get("c0"), GetParam() == 1) << "1 is the default";
}
INSTANTIATE_TEST_SUITE_P(ccmeth, everymethod, testing::Range(0, 6));

TEST_F(cli, aloadedtrackcountsasfarasitgoes) {
    put("in.wav", wavbytes(voice()));
    succeed("in.wav|estimate|c");
    const auto load = [&](std::size_t frames, const std::string &options = "") {
        EXPECT_EQ(succeed("in.wav|f|c|v|--f0load=1" + options), "");
        EXPECT_TRUE(values("v").size() == frames && values("c").size() == frames * 40) << frames;
        return get("f");
    };
    EXPECT_EQ(load(voiceframes), get("estimate")) << "the file is missing";
    floats flat(80, static_cast<float>(std::log(1.1 * voicef0)));
    flat[3] = unvoiced;
    for (const std::size_t frames : {0U, 1U, 50U, 61U, 80U}) {
        const std::string track = floatbytes(flat).substr(0, frames * 4) + "xy";
        const std::size_t analysed = frames == 0 ? voiceframes : std::min(frames, voiceframes);
        put("f", track);
        const std::string after = load(analysed);
        if (frames <= voiceframes)
            EXPECT_EQ(after, frames == 0 ? get("estimate") : track) << frames;
        else  // cut and rewritten; exp and log give back the float, or its neighbour
            for (std::size_t k = 0; k < voiceframes; ++k)
                EXPECT_FLOAT_EQ(values("f").at(k), flat[k]) << k;
        put("f", track);
        EXPECT_EQ(load(analysed, "|--f0acc=1").size(), analysed * 4) << "rewritten without xy";
        EXPECT_NE(get("f").substr(0, 4), track.substr(0, 4)) << "refined";
    }
    EXPECT_EQ(values("v")[3], values("v")[4]) << "the median removes a lone unvoiced frame";
}

// Estimating would write over it, and somebody may have spent a day on it.
TEST_F(cli, refusesaloadedtrackthatcannotberead) {
    put("in.wav", wavbytes(voice()));
    std::filesystem::create_directory(folder_ / "folder");
    std::filesystem::create_symlink("loop", folder_ / "loop");
    for (const std::string name : {"folder", "loop"})
        EXPECT_EQ(succeed("in.wav|" + name + "|c|v|--f0load=1"),
                  "Error: could not open " + name + ".\n");
    EXPECT_TRUE(get("c") == "none" && get("v") == "none");
    // Not a file of its own, but an input error all the same: nothing is mapped at the start.
    EXPECT_EQ(succeed("in.wav|/proc/self/mem|c|--f0load=1"),
              "Error: could not open /proc/self/mem.\n");
    if (geteuid() != 0) return;
    put("f", "track");
    EXPECT_EQ(shell("chmod 0 f; chmod 755 .; cp \"$0\" me; exec setpriv --reuid=65534 "
                    "--clear-groups ./me in.wav f /dev/null --f0load=1"),
              "Error: could not open f.\n");
    EXPECT_EQ(get("f"), "track");
}

// Two files of a batch: what is wrong with the first must not touch the second.
TEST_F(cli, refusesaloadedtrackwithavaluethatisnologf0) {
    constexpr float infinite = std::numeric_limits<float>::infinity();
    for (const char *name : {"1.wav", "2.wav"}) put(name, wavbytes(voice()));
    const std::pair<float, std::string> cases[] = {
        {std::nanf(""), "nan"}, {infinite, "inf"},        {-5.0F, "-5"}, {0.0F, "0"},
        {100.0F, "100"},        {-9.9e9F, "-9900000256"}, {2.5F, "2.5"}, {9.0F, "9"}};
    for (const auto &[value, text] : cases) {
        floats track(voiceframes + 1, 4.8F);
        put("2.f", floatbytes(track));
        track[60] = value;
        put("1.f", floatbytes(track));
        EXPECT_EQ(succeed("?.wav|?.f|?.c|?.v|--f0load=1|--indlist=1-2"),
                  "1.wav\nError: 1.f holds " + text +
                      " for frame 60; a log f0 must be from 2.7 to 8.98, or -1e+10 for "
                      "unvoiced.\n2.wav\n");
        EXPECT_TRUE(get("1.c") == "none" && get("1.v") == "none") << text;
        EXPECT_EQ(get("1.f"), floatbytes(track));
        EXPECT_EQ(values("2.c").size(), voiceframes * 40);
    }
}

TEST_F(cli, anyloadedtrackwithintherangegivesfiniteoutputs) {
    put("in.wav", wavbytes(voice()));
    floats wild(voiceframes + 1, 4.8F);
    for (std::size_t k = 0; const float v : {unvoiced, -std::numeric_limits<float>::infinity(),
                                             -1e38F, 8.98F, 8.9F, 2.7F, 3.4F, 8.3F, 7.0F, 3.7F})
        wild[(k += 5)] = v;
    wild[voiceframes] = 0.0F;  // behind the last frame, where nobody looks
    for (const char ccmeth : std::string("012345")) {
        put("f", floatbytes(wild));
        EXPECT_EQ(succeed("in.wav|f|c|v|--f0load=1|--f0acc=2|--ccmeth=" + std::string(1, ccmeth)),
                  "Warning: frames of in.wav with f0 below 15 Hz are analysed as unvoiced.\n");
        EXPECT_TRUE(allfinite(values("c")) && allfinite(values("v"))) << ccmeth;
        EXPECT_EQ(values("c").size(), voiceframes * 40);
    }
}

TEST_F(cli, fillslongconstantruns) {
    const std::string warning = "Warning: zeros in in.wav have been filled with noise.\n";
    shorts samples = voice();
    std::fill_n(samples.begin() + 1000, 161, std::int16_t{-20000});
    put("in.wav", wavbytes(samples));
    EXPECT_EQ(succeed("in.wav|f|c"), warning);
    EXPECT_EQ(succeed("in.wav|f|c|--zfill=161"), "");
    EXPECT_EQ(succeed("in.wav|f|c|--zfill=0"), "");
    // All silence: no voice and no NaN, with the noise or without.
    for (const char *name : {"1.wav", "2.wav"}) put(name, wavbytes(shorts(2000, 0)));
    for (const char *zfill : {"160", "0"}) {
        succeed(std::string("1.wav|f|c|v|--f0acc=2|--zfill=") + zfill);
        EXPECT_EQ(values("f"), floats(25, unvoiced));
        EXPECT_EQ(values("v"), floats(25, 0.0F));
        EXPECT_TRUE(allfinite(values("c"))) << zfill;
    }
    succeed("?.wav|f?|c?|--indlist=1-2");
    EXPECT_NE(get("c1"), get("c2")) << "the noise of a batch must go on";
}

TEST_F(cli, saysthatanoutputcannotbewrittenandgoeson) {
    put("in.wav", wavbytes(voice()));
    for (const std::string bad : {"/dev/full", "no/such", "."}) {
        const std::string error = "Error: could not create " + bad;
        EXPECT_EQ(succeed("in.wav|" + bad + "|c|v"), error + ".\n");
        EXPECT_TRUE(values("c").size() == voiceframes * 40 && values("v").size() == voiceframes);
        EXPECT_EQ(succeed("in.wav|" + bad + "|" + bad + "/.|" + bad + "/"),
                  error + ".\n" + error + "/..\n" + error + "/.\n");
    }
}

// The disk takes no more than a block of any file, then nothing at all.
TEST_F(cli, keepswhatwastherewhenitcannotwrite) {
    put("in.wav", wavbytes(voice()));
    put("c", "of an earlier run");
    EXPECT_EQ(shell("ulimit -f 1; exec \"$0\" in.wav f c v"), "Error: could not create c.\n");
    EXPECT_TRUE(values("f").size() == voiceframes && values("v").size() == voiceframes);
    const std::string corrected = floatbytes(floats(voiceframes, std::log(120.0F)));
    put("f", corrected);
    EXPECT_EQ(shell("ulimit -f 0; exec \"$0\" in.wav f c new --f0load=1 --f0acc=1"),
              "Error: could not create f.\nError: could not create c.\n"
              "Error: could not create new.\n");
    EXPECT_TRUE(get("f") == corrected && get("c") == "of an earlier run");
    EXPECT_EQ(namesin(folder_ / ""), (std::vector<std::string>{"c", "f", "in.wav", "v"}));
}

TEST_F(cli, refusesonefileundertwonames) {
    put("in.wav", wavbytes(voice()));
    put("f", "a track");
    std::filesystem::create_hard_link(folder_ / "in.wav", folder_ / "hard");
    std::filesystem::create_symlink(".", folder_ / "here");
    std::filesystem::create_symlink("here/f", folder_ / "soft");
    std::filesystem::create_symlink("here/new", folder_ / "ahead");
    const std::vector<std::string> before = namesin(folder_ / "");
    const std::pair<std::string, std::string> cases[] = {{"in.wav|c|v", "in.wav|in.wav"},
                                                         {"f|hard|v", "in.wav|hard"},
                                                         {"x|x|x", "x|x"},
                                                         {"c|new|ahead", "new|ahead"},
                                                         {"f|c|soft", "f|soft"},
                                                         {"soft|f|--f0load=1", "soft|f"},
                                                         {"c|hard", "in.wav|hard"}};
    for (const auto &[files, two] : cases) {
        const runresult result = run("me|in.wav|" + files);
        const std::vector<std::string> names = split(two, '|');
        EXPECT_EQ(result.out, "Error: " + names[0] + " and " + names[1] + " are the same file.\n");
        EXPECT_EQ(result.status, 255) << files;
    }
    EXPECT_TRUE(namesin(folder_ / "") == before && get("in.wav") == wavbytes(voice()) &&
                get("f") == "a track");
    EXPECT_EQ(succeed("in.wav|/dev/null|/dev/null|/dev/null"), "");
    EXPECT_EQ(succeed("in.wav|/dev/stdout|/dev/stdout").size(), voiceframes * 41 * 4);
}

TEST_F(cli, refusesonefileundertwonamesofaseries) {
    for (const char *name : {"1.wav", "2.wav", "3.wav"}) put(name, wavbytes({1, 2, 3}));
    std::filesystem::create_symlink("f2", folder_ / "v2");
    std::filesystem::create_symlink(".", folder_ / "here");
    for (const std::string files : {"f?|f?", "f?|f7", "f?|c?|here/f1", "here/?.wav|c?"}) {
        const runresult result = run("me|?.wav|" + files + "|--indlist=1-3");
        EXPECT_EQ(result.status, 255) << files;
        EXPECT_TRUE(result.out.ends_with(" are the same file.\n")) << result.out;
        EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 1) << "before the first";
    }
    EXPECT_EQ(run("me|?.wav|f?|f?|--indlist=1").out, "Error: f? and f? are the same file.\n");
    const runresult result = run("me|?.wav|f?|c?|v?|--indlist=1-3");
    EXPECT_EQ(result.out, "1.wav\n2.wav\nError: f2 and v2 are the same file.\n3.wav\n");
    EXPECT_EQ(result.status, 255);
    EXPECT_TRUE(get("c2") == "none" && get("v2") == "none" && values("v3").size() == 1);
    EXPECT_EQ(succeed("?.wav|f?|f??|--indlist=1"), "1.wav\n") << "not the same width";
}

TEST_F(cli, closedstreamsneverreachanoutput) {
    put("in.wav", wavbytes(shorts(3000, 5)));  // gives a warning
    EXPECT_EQ(shell("\"$0\" in.wav f1 c1 v1 >said; exec \"$0\" in.wav f c v <&- >&- 2>&-"), "");
    EXPECT_NE(get("said"), "");
    EXPECT_TRUE(get("f") == get("f1") && get("c") == get("c1") && get("v") == get("v1"));
    EXPECT_EQ(shell("\"$0\" in.wav f c 2>&1 >/dev/full; echo $?"),
              "Error: could not write all messages to standard output.\n255\n");
}

// 8.4 million frames of 512 values: more than a cepstral matrix can hold.
TEST_F(cli, saysthatmemoryisshortandgoeson) {
    wavheader header;
    header.datasize = 2 * ((1U << 23) + 1);
    put("1.wav", wavbytes({}, header));
    std::filesystem::resize_file(folder_ / "1.wav", 44 + *header.datasize);
    put("2.wav", wavbytes({1, 2, 3}));
    const runresult result =
        run("me|?.wav|?.f|?.c|--indlist=1-2|--lframe=1|--ccord=511|--ccmeth=3|--zfill=0");
    EXPECT_EQ(result.out, "1.wav\nError: not enough memory to analyse 1.wav.\n2.wav\n");
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(get("1.c"), "none");
    EXPECT_EQ(values("2.c").size(), 3 * 512U);
}

TEST_F(cli, tworunsonspeecharealikebyteforbyte) {
    for (const std::string f0acc : {"0", "2"}) {
        for (const std::string run : {"1", "2"})
            EXPECT_EQ(succeed(NALVEO_EXAMPLES "/sample.wav|f" + run + "|c" + run + "|v" + run +
                              "|--f0acc=" + f0acc),
                      "");
        EXPECT_TRUE(get("f1") == get("f2") && get("c1") == get("c2") && get("v1") == get("v2"));
        EXPECT_EQ(values("f1").size(), 558U);  // (44580 - 1) / 80 + 1
        for (const char *name : {"f1", "c1", "v1"}) EXPECT_TRUE(allfinite(values(name))) << name;
    }
}
