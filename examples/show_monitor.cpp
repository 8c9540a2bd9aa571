// Checks a scene file, renders it to a WAV file, and then plays it in real time, with a page on
// which a browser sees it move: show_monitor SCENE OUT.wav
#include <Show/MonitorPage.h>
#include <Show/Playback.h>
#include <Show/Render.h>

#include <chrono>
#include <iostream>
#include <thread>

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    const Show::ShowFile scene = Show::ShowFile::load(argv[1]);
    for (const Show::Problem& problem : scene.problems()) {
        std::cerr << problem.str() << '\n'; // scene.json:12: emitters[0].gain: expected ...
    }
    for (const Show::Problem& warning : scene.check().warnings) {
        std::cerr << warning.str() << '\n';
    }
    Show::RenderSettings settings;
    settings.progress = [](double done) { return static_cast<bool>(std::cout << done << '\r'); };
    const Show::RenderResult result = Show::renderToFile(scene, argv[2], settings);
    if (!result.isGood()) {
        std::cerr << result.error << '\n';
        return 1;
    }
    std::cout << result.seconds << " s are in " << argv[2] << std::endl;

    Orvel::World world;
    world.addBackend("default", ""); // this machine's sound device
    const Show::MonitorPage page(world);
    std::cout << (page.isOpen() ? "look at " + page.url() : page.error()) << std::endl;
    Show::Playback playback(world, scene);
    playback.start();
    const auto begin = std::chrono::steady_clock::now();
    for (double now = 0.0; now < playback.end();) {
        playback.advance(now);
        world.update(); // serves the page
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        now = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    }
    world.clearWorld();
    world.deleteAllBackends();
}
