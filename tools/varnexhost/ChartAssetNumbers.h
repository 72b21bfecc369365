/* For the resource compiler, too. */
#ifndef VARNEX_HOST_CHART_ASSET_NUMBERS_H
#define VARNEX_HOST_CHART_ASSET_NUMBERS_H

/* The parts of the chart page among this program's resources, as raw data. */
#define CHART_PAGE_RESOURCE 100
#define CHART_STYLE_RESOURCE 101
#define CHART_SCRIPT_RESOURCE 102
#define CHART_LIBRARY_RESOURCE 103
#define CHART_LIBRARY_STYLE_RESOURCE 104
#define CHART_LIBRARY_LICENCE_RESOURCE 105

#endif
