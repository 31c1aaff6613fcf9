// The modules in a frei0r host: what they say, and that their pictures are those of the command line.
#include "tests/frei0r_rig.h"

#include <sys/resource.h>

#include <cstdlib>
#include <limits>
#include <set>
#include <thread>

namespace {

using namespace test_frei0r;

#ifdef VELLORAN_SANITIZED
constexpr size_t every = 9;  // rendering takes its time there, and the pictures are the other build's subject
#else
constexpr size_t every = 1;
#endif

#ifndef VELLORAN_SANITIZED
long process_kilobytes(const std::string& what) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind(what, 0) == 0) return std::atol(line.c_str() + what.size());
    return 0;
}
#endif

TEST(Frei0r, ModulesSayWhatTheListSays) {
    std::set<std::string> slugs, titles, effects;
    for (const Known& known : known_modules()) {
        SCOPED_TRACE(known.slug);
        const Loaded module(known.slug);
        slugs.insert(known.slug);
        effects.insert(known.effect.substr(0, known.effect.find(':')) + ":" + known.listed["name"].get<std::string>());
        EXPECT_TRUE(titles.insert(module.info.name).second) << module.info.name;
        EXPECT_EQ(module.inputs(), static_cast<int>(known.listed["inputs"].size()));
        EXPECT_EQ(module.info.frei0r_version, FREI0R_MAJOR_VERSION);
        EXPECT_EQ(module.info.color_model, F0R_COLOR_MODEL_RGBA8888);
        EXPECT_EQ(std::string(module.info.explanation).find(known.listed["note"].get<std::string>()), 0u);
        ASSERT_EQ(module.params.size(), known.indices.size());
        for (const auto& [name, index] : known.indices) EXPECT_EQ(module.params[static_cast<size_t>(index)].name, name);
        const Values values(known.listed["params"], known.indices, nullptr);
        const f0r_instance_t instance = module.construct(33, 17);
        ASSERT_TRUE(instance);
        std::map<int, int> channels;
        for (const Value& value : values.list) {
            const int type = module.params[static_cast<size_t>(value.index)].type;
            double number = -1;
            float colour[3] = {-1, -1, -1};
            module.get(instance, type == F0R_PARAM_COLOR ? static_cast<void*>(colour) : &number, value.index);
            if (type == F0R_PARAM_COLOR) number = colour[channels[value.index]++];
            EXPECT_NEAR(number, value.hosts, 1e-6) << value.name;
            EXPECT_TRUE(number >= 0 && number <= 1) << value.name << " " << number;
        }
        module.destruct(instance);
    }
    EXPECT_EQ(std::vector<std::string>(slugs.begin(), slugs.end()), all_slugs());
    // Every other effect is left out for a reason.
    const Bytes text = output_of(std::string(RECORDS_PROGRAM) + " left-out");
    const std::string left_out(text.begin(), text.end());
    for (const auto& family : list_of(""))
        for (const auto& name : family["effects"]) {
            const std::string effect = family["plugin"].get<std::string>() + ":" + name.get<std::string>();
            EXPECT_NE(effects.count(effect) > 0, left_out.find(effect + ": ") != std::string::npos) << effect;
        }
}

TEST(Frei0r, EveryEffectMakesThePictureOfTheCommandLine) {
    const Pictures pictures(61, 43);
    std::mt19937 random(7);
    size_t at = 0;
    for (const Known& known : known_modules()) {
        if (at++ % every) continue;
        SCOPED_TRACE(known.slug);
        const Loaded module(known.slug);
        const f0r_instance_t instance = module.construct(61, 43);
        for (std::mt19937* const values_from : {static_cast<std::mt19937*>(nullptr), &random}) {
            const Values values(known.listed["params"], known.indices, values_from);
            if (values_from) values.give(module, instance);
            const Bytes made = pictures.module(module, instance, 0.08);
            // Without an input the command line works in 12 bits, and rounds to the 8 that go out.
            const Bytes expected = pictures.command_line(known.effect, module.inputs(), values.arguments, 3);
            EXPECT_LE(largest_difference(without_alpha(made), expected), module.inputs() ? 0 : 1) << values.arguments;
            for (size_t i = 3; i < made.size(); i += 4)
                ASSERT_EQ(made[i], module.inputs() ? pictures.inputs[0][i] : 255);
        }
        module.destruct(instance);
    }
}

TEST(Frei0r, TimeFindsTheFrame) {
    const Pictures pictures(40, 24);
    const Loaded module("velloran_tv_snow");
    const auto at = [&](f0r_instance_t instance, double time) { return pictures.module(module, instance, time); };
    const f0r_instance_t one = module.construct(40, 24), other = module.construct(40, 24);
    const Bytes first = at(one, 0), second = at(one, 0.0401), late = at(one, 3600);
    EXPECT_NE(first, second);
    EXPECT_NE(second, late);
    // From anywhere.
    EXPECT_EQ(at(other, 3600), late);
    EXPECT_EQ(at(other, 0.04), second);
    // Where there is no time, frames are counted.
    const f0r_instance_t timeless = module.construct(40, 24);
    EXPECT_EQ(at(timeless, -3.7e20), first);
    EXPECT_EQ(at(timeless, std::numeric_limits<double>::quiet_NaN()), second);
    setenv("VELLORAN_FREI0R_RATE", "50", 1);
    EXPECT_EQ(at(one, 0.02), second);
    for (const char* wrong : {"", "0", "-25", "fast", "nan"}) {
        setenv("VELLORAN_FREI0R_RATE", wrong, 1);
        EXPECT_EQ(at(one, 0.04), second) << wrong;
    }
    unsetenv("VELLORAN_FREI0R_RATE");
    for (const f0r_instance_t instance : {one, other, timeless}) module.destruct(instance);
}

TEST(Frei0r, HostsThatBreakTheRulesComeToNoHarm) {
    const Loaded module("velloran_glow");
    for (const auto& [width, height] :
         std::vector<std::pair<unsigned, unsigned>>{{0, 0}, {0, 8}, {8, 0}, {1u << 31, 1}, {~0u, ~0u}, {40000, 40000}})
        EXPECT_FALSE(module.construct(width, height)) << width << "x" << height;
    const Pictures pictures(1, 1);
    const f0r_instance_t tiny = module.construct(1, 1);
    Bytes out(4);
    double wild[] = {std::numeric_limits<double>::quiet_NaN(), -1e300, 1e300, 0.5};
    for (double& value : wild)
        for (int param = -2; param < 30; param++) {
            float colour[4] = {static_cast<float>(value), 0, 0, 0};
            const bool is_colour = param >= 0 && param < module.info.num_params &&
                                   module.params[static_cast<size_t>(param)].type == F0R_PARAM_COLOR;
            module.set(tiny, is_colour ? static_cast<void*>(colour) : &value, param);
            pictures.module(module, tiny, 0);
        }
    // Nothing comes in: black.
    module.update(tiny, 0, nullptr, reinterpret_cast<uint32_t*>(out.data()));
    EXPECT_EQ(out[3], 255);
    module.destruct(tiny);
    module.destruct(tiny);
    module.set(tiny, wild, 0);
    module.update(tiny, 0, nullptr, reinterpret_cast<uint32_t*>(out.data()));
}

// Nobody takes it for a picture: opaque stripes, whatever came in.
bool striped_p(const Bytes& bytes) {
    const unsigned char stripe[4] = {255, 0, 255, 255};
    for (size_t i = 3; i < bytes.size(); i += 4)
        if (bytes[i] != 255) return false;
    return std::equal(stripe, stripe + 4, bytes.begin()) && std::count(bytes.begin(), bytes.end(), 0) > 8;
}

TEST(Frei0r, AFrameThatCannotBeMadeIsStriped) {
    const Pictures pictures(40, 24);
    const Loaded module("velloran_glow");
    const f0r_instance_t instance = module.construct(40, 24);
    std::ofstream(pictures.dir / "glows.so") << "no plug-in";
    setenv("VELLORAN_PLUGINS", pictures.dir.c_str(), 1);
    EXPECT_TRUE(striped_p(pictures.module(module, instance, 0)));
    unsetenv("VELLORAN_PLUGINS");
    const Bytes made = pictures.module(module, instance, 0);
    EXPECT_FALSE(striped_p(made));
#ifndef VELLORAN_SANITIZED
    // Memory ends at any depth of a frame.
    constexpr int side = 2500;
    const Bytes large = picture(side, side, 1);
    Bytes out(large.size());
    struct rlimit limit = {};
    getrlimit(RLIMIT_AS, &limit);
    long whole = 0;
    for (const long room : {1L, 30L, 60L, 120L, 240L, 2000L}) {
        const f0r_instance_t hungry = module.construct(side, side);
        struct rlimit low = limit;
        low.rlim_cur = static_cast<rlim_t>((process_kilobytes("VmSize:") + room * 1024) * 1024);
        setrlimit(RLIMIT_AS, &low);
        module.update(hungry, 0, reinterpret_cast<const uint32_t*>(large.data()),
                      reinterpret_cast<uint32_t*>(out.data()));
        setrlimit(RLIMIT_AS, &limit);
        whole += striped_p(out) ? 0 : room;
        module.destruct(hungry);
        EXPECT_EQ(pictures.module(module, instance, 0), made) << room;
    }
    EXPECT_GE(whole, 2000);
    EXPECT_LT(whole, 2400);
#endif
    module.destruct(instance);
}

TEST(Frei0r, SixteenInstancesOnSixteenThreads) {
    const char* const slugs[] = {"velloran_glow",  "velloran_grade",  "velloran_twirl",  "velloran_clouds",
                                 "velloran_edges", "velloran_grain",  "velloran_lens",   "velloran_dissolve",
                                 "velloran_move",  "velloran_invert", "velloran_ripple", "velloran_lens_flare",
                                 "velloran_spots", "velloran_emboss", "velloran_iris",   "velloran_sharpen"};
    const Pictures pictures(48, 30);
    std::vector<std::unique_ptr<Loaded>> modules;
    std::vector<Bytes> alone;
    for (const char* slug : slugs) {
        const Loaded& module = *modules.emplace_back(std::make_unique<Loaded>(slug));
        const f0r_instance_t instance = module.construct(48, 30);
        alone.push_back(pictures.module(module, instance, 0));
        module.destruct(instance);
    }
    std::vector<std::thread> threads;
    for (size_t i = 0; i < modules.size(); i++)
        threads.emplace_back([&, i] {
            const Loaded& module = *modules[i];
            const f0r_instance_t instance = module.construct(48, 30);
            for (int turn = 0; turn < 3; turn++) EXPECT_EQ(pictures.module(module, instance, 0), alone[i]) << slugs[i];
            module.destruct(instance);
        });
    for (std::thread& thread : threads) thread.join();
}

TEST(Frei0r, AnInstanceThatTwoThreadsUse) {
    const Pictures pictures(48, 30);
    const Loaded module("velloran_grade");
    const f0r_instance_t instance = module.construct(48, 30);
    const Bytes first = pictures.module(module, instance, 0);
    double start = 0;
    module.get(instance, &start, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; t++)
        threads.emplace_back([&, t] {
            for (int turn = 0; turn < 10; turn++) {
                double value = turn / 10.0;
                module.set(instance, &value, 0);
                module.get(instance, &value, 0);
                pictures.module(module, instance, t);
            }
        });
    for (std::thread& thread : threads) thread.join();
    module.set(instance, &start, 0);
    EXPECT_EQ(pictures.module(module, instance, 0), first);
    // One that is closed while another thread's frame is made.
    std::thread other([&] {
        for (int turn = 0; turn < 20; turn++) pictures.module(module, instance, turn);
    });
    module.destruct(instance);
    other.join();
}

TEST(Frei0r, LoadedRenderedAndUnloadedAgainAndAgain) {
    const Pictures pictures(64, 40);
    const char* const slugs[] = {"velloran_glow", "velloran_grade", "velloran_clouds", "velloran_wipe"};
    std::map<std::string, Bytes> first;
    long before = 0;
#ifdef VELLORAN_SANITIZED
    constexpr int turns = 12;
#else
    constexpr int turns = 500;
#endif
    for (int turn = 0; turn < turns; turn++) {
        const std::string slug = slugs[turn % 4];
        const Loaded module(slug);
        const f0r_instance_t instance = module.construct(64, 40);
        const Bytes made = pictures.module(module, instance, 0);
        EXPECT_EQ(first.emplace(slug, made).first->second, made) << slug << " " << turn;
        module.destruct(instance);
#ifndef VELLORAN_SANITIZED
        if (turn == 100) before = process_kilobytes("VmRSS:");
    }
    EXPECT_LT(process_kilobytes("VmRSS:") - before, 4000);
#else
    }
    (void)before;
#endif
}

TEST(Frei0r, PagesAreWhole) {
    for (const Known& known : known_modules()) {
        SCOPED_TRACE(known.slug);
        const size_t inputs = known.listed["inputs"].size();
        const std::string kind = inputs == 0 ? "producer" : inputs == 1 ? "filter" : "transition";
        const std::string room = inputs == 0 ? "generators" : inputs == 1 ? "effects" : "transitions";
        std::ifstream mlt(std::string(PAGES) + "/mlt/" + kind + "_frei0r." + known.slug + ".yml");
        size_t params = 0;
        for (std::string line; std::getline(mlt, line);) params += line.rfind("  - identifier: ", 0) == 0;
        EXPECT_EQ(params, known.indices.size());
        if (inputs > 2) continue;
        std::ifstream file(std::string(PAGES) + "/kdenlive/" + room + "/frei0r_" + known.slug + ".xml");
        const std::string page((std::istreambuf_iterator<char>(file)), {});
        std::vector<std::string> open;
        params = 0;
        for (size_t i = page.find("<", page.find("kpartgui>")); i != std::string::npos; i = page.find('<', i + 1)) {
            const std::string tag = page.substr(i + 1, page.find_first_of(" >", i) - i - 1);
            params += tag == "parameter";
            if (tag[0] != '/') {
                open.push_back(tag);
            } else {
                ASSERT_TRUE(!open.empty() && open.back() == tag.substr(1)) << tag;
                open.pop_back();
            }
        }
        EXPECT_TRUE(open.empty() && !page.empty());
        EXPECT_EQ(params, known.indices.size());
    }
}

}  // namespace
