#ifndef TPL_TPLINT_H
#define TPL_TPLINT_H

/* tplInt.h: what tests see of the catalogue beyond tpl.h: also the rows that no object can be made of. */

#include "tpl/tpl.h"

#ifdef __cplusplus
extern "C" {
#endif

/* All rows in their fixed order; a row of code 0 ends them. Shape tables are null until they are asked for. */
const tplRec *tplCatalogue(void);

#ifdef __cplusplus
}
#endif
#endif
