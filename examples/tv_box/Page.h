#ifndef KPL_EXAMPLES_TV_BOX_PAGE_H_
#define KPL_EXAMPLES_TV_BOX_PAGE_H_

namespace tv_box {

// page.html, in which "{{state}}" stands for the state.
extern const char kPage[];

}  // namespace tv_box

#endif  // KPL_EXAMPLES_TV_BOX_PAGE_H_
