// The live view's page: plain HTML and JavaScript, served by the tool itself
// (nothing is fetched from elsewhere). Made at build time from live_page.html.
#ifndef FACEDET_LIVE_PAGE_H
#define FACEDET_LIVE_PAGE_H

extern const char kLivePage[];

#endif
