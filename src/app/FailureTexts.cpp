#include "app/FailureTexts.h"

namespace nulo {
namespace {

const std::string serviceFile = "~/.config/nulo/service.json";

/// Why a request failed, and what to do.
std::string advice(const TranscriptionFailure& failure) {
    if (const auto* transport = std::get_if<Error>(&failure))
        return "Le service n'a pas pu repondre : " + transport->description +
               ". Verifiez le reseau, l'adresse dans " + serviceFile +
               ", et que le service est lance.";
    const auto& error = std::get<TranscriptionError>(failure);
    const int status = error.statusCode();
    const std::string code = " (" + std::to_string(status) + ").";
    if (status == 401 || status == 403)
        return "Le service refuse l'acces" + code + " Verifiez les en-tetes dans " + serviceFile +
               ".";
    if (status == 429 || status == 503)
        return "Le service est surcharge" + code + " Reessayez dans un instant.";
    if (status != 0)
        return "Le service signale une erreur" + code +
               " Reessayez ; si elle revient, verifiez l'adresse dans " + serviceFile + ".";
    return error.errorDescription() + ". Dictez a nouveau ; si l'erreur revient, verifiez " +
           serviceFile + ".";
}

}  // namespace

Notice recordingNotStarted(const Error& reason) {
    return {"Rien n'est enregistre", "Le micro ne peut pas etre utilise : " + reason.description +
                                         ". Verifiez qu'il est branche, et choisi dans les "
                                         "reglages du son."};
}

Notice recordingInterrupted(const Error& reason) {
    return {"Enregistrement interrompu",
            "La suite n'est pas enregistree : " + reason.description +
                ". Ce qui a ete dit avant sera transcrit ; verifiez le micro dans les reglages "
                "du son."};
}

Notice recordingNotSaved(const Error& reason) {
    return {"Enregistrement perdu", "Il n'a pas pu etre ecrit : " + reason.description +
                                        ". Verifiez la place libre sur le disque, puis dictez a "
                                        "nouveau."};
}

Notice recordingTooLong() {
    return {"Enregistrement termine",
            "Une dictee dure 15 minutes au plus. Ce qui a ete dit est transcrit ; dictez la suite "
            "a nouveau."};
}

Notice configUnreadable() {
    return {"Reglages illisibles",
            "Le fichier ~/.config/nulo/config.json n'est pas valide. Corrigez-le, ou supprimez-le "
            "et relancez Nulo."};
}

Notice serviceFileRefused(const Error& reason) {
    return {"Dictee impossible", reason.description + ". Corrigez le fichier, puis relancez Nulo."};
}

Notice requestFailed(const TranscriptionFailure& failure) {
    return {"La dictee a echoue", advice(failure)};
}

Notice cleanupFailed(const TranscriptionFailure& failure) {
    return {"Texte colle sans correction", advice(failure)};
}

Notice nothingRecognised() {
    return {"Rien n'a ete reconnu",
            "Le service n'a entendu aucune parole. Verifiez dans les reglages du son que le micro "
            "n'est pas coupe."};
}

Notice andTakeKept(Notice failure) {
    // It stands first, because desktops cut long texts.
    failure.text = "L'enregistrement est garde : nulo --retry l'envoie a nouveau. " + failure.text;
    return failure;
}

Notice textRecovered() {
    return {"Dictee retrouvee", "Le texte est dans le presse-papiers, collez-le vous-meme."};
}

Notice textRecoveredWithoutCleanup(const TranscriptionFailure& failure) {
    return {"Dictee retrouvee sans correction",
            "Le texte est dans le presse-papiers, collez-le vous-meme. " + advice(failure)};
}

Notice textNotPasted(const Error& reason) {
    return {"Texte non colle",
            "Il est dans le presse-papiers, collez-le vous-meme : " + reason.description + "."};
}

Notice textNotRead() {
    return {"Texte non colle",
            "Aucun programme ne l'a pris. Il est dans le presse-papiers, collez-le vous-meme."};
}

Notice textReplaced() {
    return {"Texte non colle",
            "Aucun programme ne l'a pris, et la dictee suivante est venue a sa place dans le "
            "presse-papiers."};
}

}  // namespace nulo
