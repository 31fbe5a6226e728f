#include "Gallery.h"

namespace nulo::gallery {

AppConfig someonesSettings() {
    AppConfig config = defaultConfig();
    config.modes.push_back({"3f9c27aa", "Compte rendu",
                            "Transforme cette dictee en compte rendu de reunion : une ligne de "
                            "contexte, puis les decisions, puis les actions avec leur responsable. "
                            "Garde les noms propres et les chiffres tels quels.",
                            false, "openai"});
    config.modes.push_back({"81d0e5b2", "Message d'equipe",
                            "Reformule en message court et cordial, sans formule de politesse.",
                            false, "mistral"});
    config.dictionary = {"Nulo",   "PostgreSQL", "Anaïs Lefèvre", "RGPD",
                         "Debian", "Saint-Malo", "Kubernetes",    "CNRS"};
    return config;
}

}  // namespace nulo::gallery
