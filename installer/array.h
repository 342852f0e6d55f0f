// A growable table of untyped item pointers with a cursor. The array never owns its items unless
// it is released with a function that says so. Null arrays are accepted and hold nothing.
#pragma once

struct Array {
    int size;    // slots allocated
    int block;   // slots added at each growth
    int items;   // slots in use, always the first ones
    int current; // the item that array_get returns next; -1 is past the end
    int lock;    // reserved, 0
    int locked;  // reserved, 0
    void **data; // the slots; null before the first growth
};

using ArrayFreeFn = void (*)(void **item);

// A new, empty array that grows by 10 slots. The argument is not used.
[[nodiscard]] Array *array_init(int lock);

// Makes room for `size` slots at once and sets the growth step, 5 when `block` is below 1.
void array_setup(Array *array, int size, int block);

// Appends. 1, or 0 for null arguments and short memory.
int array_add(Array *array, void *item);

// Appends an item that nobody can do without: where array_add gives 0, the program ends.
void array_keep(Array *array, void *item);

// Inserts before the item at `index`; the cursor keeps to its item. 1, or 0 for null arguments, an
// index outside 0..items and short memory (which is logged).
int array_add_num(Array *array, void *item, int index);

// The item at `index`, with the cursor moved behind it (-1 behind the last). Null, with the cursor
// where it was, for an invalid index.
void *array_get_num(Array *array, int index);

// The item at the cursor, which advances; null past the end.
void *array_get(Array *array);

// Moves the cursor: to the first item; to an index below the number of items (a negative one is
// taken as it is); to the next item, -1 behind the last; one back, except from 0 (-1 becomes -2,
// from where array_get finds nothing).
void array_start(Array *array);
void array_goto(Array *array, int index);
void array_next(Array *array);
void array_prev(Array *array);

// Release the array and clear the caller's pointer. The items are left alone; released with free;
// or each handed by the address of its slot to the function, which may be null.
void array_free(Array **array);
void array_free_dealloc(Array **array);
void array_free_fn(Array **array, ArrayFreeFn release);

// Typed views: the item at an index without moving the cursor, null for an invalid index.
template <typename T> T *array_item(const Array *array, int index)
{
    const bool valid = array && array->data && index >= 0 && index < array->items;
    return valid ? static_cast<T *>(array->data[index]) : nullptr;
}
