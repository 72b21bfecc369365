/* For the resource compiler, too. */
#ifndef VARNEX_HOST_DEFAULT_CONFIG_H
#define VARNEX_HOST_DEFAULT_CONFIG_H

/* The default configuration file among this program's resources, as raw data. */
#define DEFAULT_CONFIG_RESOURCE 1

#endif
