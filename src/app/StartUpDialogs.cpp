#include "app/StartUpDialogs.h"

namespace nulo {

AlertContent accessibilityAlert() {
    return {.style = AlertContent::Style::warning,
            .message = "Nulo a besoin de l'acces Accessibilite",
            .informativeText =
                "Pour detecter le raccourci Option+Espace, Nulo doit etre autorise dans "
                "Reglages > Confidentialite et securite > Accessibilite.\n\n"
                "Cliquez sur \"Ouvrir les Reglages\" et activez Nulo dans la liste.",
            .buttons = {"Ouvrir les Reglages", "Plus tard"}};
}

AlertContent loginItemOffer() {
    return {
        .style = AlertContent::Style::informational,
        .message = "Lancer Nulo au demarrage ?",
        .informativeText = "Nulo peut se lancer automatiquement quand vous ouvrez votre session.",
        .buttons = {"Oui, activer", "Non merci"}};
}

}  // namespace nulo
