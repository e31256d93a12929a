#pragma once
// Grand Central Dispatch: the queue the audio listeners run on.
typedef struct dispatch_queue_s *dispatch_queue_t;
extern "C" dispatch_queue_t dispatch_get_current_queue(void);
