// A host application: text files are synced, all else is in the cloud, and a click says hello.
#include <CorvidHostKit/Host.h>
#include <iostream>

using namespace corvid::hostkit;

class MinimalHost : public Application {
    std::string badge(const std::string& path) override {
        return path.ends_with(".txt") ? "synced" : "cloud";
    }
    std::vector<MenuItem> menu(const std::vector<std::string>&, bool) override {
        return {{.title = "Say Hello", .action = "hello", .submenu = {}}};
    }
    void actionPerformed(const Click& click) override {
        std::cout << "Hello, " << click.paths.front() << std::endl;
        host().push(click.paths.front(), "checkedOut");
    }
};

int main(int argc, char** argv) try {
    MinimalHost application;
    const Host host(argc > 1 ? argv[1] : ".", application);
    std::cout << "Serving " << host.folder() << " until Enter is pressed" << std::endl;
    std::cin.get();
} catch (const Error& error) {
    std::cerr << error.what() << std::endl;
    return 1;
}
