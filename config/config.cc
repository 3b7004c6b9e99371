#include "config/config.h"

std::unique_ptr<qel_t> qel_load()
{
    return qelcfg_read(config_path);
}

void qel_save(const qel_t *c)
{
    qelcfg_write(config_path, c);
}
