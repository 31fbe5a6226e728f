// The two functions that platform/system/HttpModule looks up by their names; the caller owns what
// they return.

#include "platform/http/CurlHttp.h"

extern "C" {

[[gnu::visibility("default")]] nulo::HttpSession* nuloMakeHttpSession(
    nulo::HttpSessionDelegate& delegate) {
    return nulo::makeCurlHttpSession(delegate).release();
}

[[gnu::visibility("default")]] nulo::UpdateHttp* nuloMakeUpdateHttp(nulo::MainQueue& mainQueue) {
    return nulo::makeCurlUpdateHttp(mainQueue).release();
}

}  // extern "C"
