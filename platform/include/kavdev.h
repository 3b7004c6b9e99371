/* libkavdev.so.1: the device layer. */
#ifndef KAVDEV_H
#define KAVDEV_H

#ifdef __cplusplus
extern "C" {
#endif

/* Re-probes the devices of the host. FLAG is always 1. Negative on failure. */
int kav_device_probe_all(int flag);

#ifdef __cplusplus
}
#endif

#endif
