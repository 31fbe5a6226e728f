#include "service/app/Options.h"

#include <charconv>

#include "base/HttpUrl.h"

namespace nulo::service {
namespace {

template <typename Number>
bool readNumber(const std::string& text, Number least, Number most, Number& number) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end && number >= least && number <= most;
}

}  // namespace

Result<Options> parsedOptions(const std::vector<std::string>& arguments) {
    Options options;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& name = arguments[i];
        if (name == "--help" || name == "--version") {
            options.action = name == "--help" ? Options::Action::help : Options::Action::version;
            return options;
        }
        if (name == "--check") {
            options.action = Options::Action::check;
            continue;
        }
        if (name != "--config" && name != "--port" && name != "--address" &&
            name != "--token-file" && name != "--model-dir" && name != "--update-dir" &&
            name != "--jobs")
            return Error{"unknown option " + name};
        if (i + 1 == arguments.size() || arguments[i + 1].empty())
            return Error{name + " needs a value"};
        const std::string& value = arguments[++i];
        if (name == "--port" && !readNumber(value, 0, 65535, options.port.emplace()))
            return Error{"--port takes a number from 0 to 65535"};
        if (name == "--jobs" && !readNumber<std::size_t>(value, 1, 64, options.jobs))
            return Error{"--jobs takes a number from 1 to 64"};
        if (name == "--config")
            options.configFile = value;
        if (name == "--address")
            options.address = value;
        if (name == "--token-file")
            options.tokenFile = value;
        if (name == "--model-dir")
            options.modelFolder = value;
        if (name == "--update-dir")
            options.updateFolder = value;
    }
    return options;
}

Outcome checkReach(const std::string& address, bool hasToken) {
    if (!isThisMachine(address) && !hasToken)
        return Error{"the address " + address +
                     " can be reached from other machines: name a --token-file, or list tokens in "
                     "the configuration"};
    return Success{};
}

std::string_view helpText() {
    return "usage: nulo-service [--config F] [--check] [--port N] [--address A] [--token-file F] "
           "[--model-dir D] [--update-dir D] [--jobs N]\n"
           "       nulo-service models [get NAME | remove NAME]\n"
           "\n"
           "Serves speech recognition to Nulo: through the providers that the configuration "
           "names,\n"
           "with your own keys; without any, offline: in English, or with a model that\n"
           "\"nulo-service models\" fetches, in French and many other languages.\n"
           "\n"
           "  --config F      configuration, by default nulo/nulo-service.json in the user's\n"
           "                  configuration folder, when there is one\n"
           "  --check         says whether the configuration is right and what each provider will\n"
           "                  be used for, and ends\n"
           "  --port N        port, 8737 by default; 0 takes any free one and prints it\n"
           "  --address A     address to listen on, 127.0.0.1 by default; any address that other\n"
           "                  machines can reach needs --token-file\n"
           "  --token-file F  file with the token that requests must carry\n"
           "  --model-dir D   folder of the speech model, by default that of the Debian package\n"
           "                  pocketsphinx-en-us\n"
           "  --update-dir D  folder with an update to offer: version.json, update.sh, updates/\n"
           "  --jobs N        recordings recognised at once, by default one a processor core\n"
           "  --help          this text\n"
           "  --version       the version\n";
}

}  // namespace nulo::service
