// report.html's template (Mustache tags in plain HTML, page_template.h):
// made at build time from report_page.html.
#ifndef FACEDET_REPLAY_REPORT_PAGE_H
#define FACEDET_REPLAY_REPORT_PAGE_H

extern const char kReportPage[];

#endif
