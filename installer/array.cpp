#include "array.h"

#include <cstdlib>

#include "lib.h"
#include "log.h"

namespace {

bool grow(Array *array)
{
    if (array->size + array->block == 0)
        return false;
    if (!grow_table(array->data, static_cast<size_t>(array->size),
                    static_cast<size_t>(array->block))) {
        emsg("Memory allocation error.");
        return false;
    }
    array->size += array->block;
    return true;
}

void release(Array **array)
{
    std::free((*array)->data);
    delete *array;
    *array = nullptr;
}

} // namespace

Array *array_init(int)
{
    return new Array{
        .size = 0, .block = 10, .items = 0, .current = -1, .lock = 0, .locked = 0, .data = nullptr};
}

void array_setup(Array *array, int size, int block)
{
    if (!array)
        return;
    if (size > array->size) {
        array->block = size - array->size;
        grow(array);
    }
    array->block = block >= 1 ? block : 5;
}

int array_add(Array *array, void *item)
{
    return array ? array_add_num(array, item, array->items) : 0;
}

void array_keep(Array *array, void *item)
{
    if (!array_add(array, item))
        out_of_memory();
}

int array_add_num(Array *array, void *item, int index)
{
    if (!array || !item)
        return 0;
    if (array->items == array->size && !grow(array))
        return 0;
    if (index < 0 || index > array->items)
        return 0;
    for (int slot = array->items; slot > index; slot--)
        array->data[slot] = array->data[slot - 1];
    array->data[index] = item;
    array->items++;
    if (array->current >= index)
        array->current++;
    return 1;
}

void *array_get_num(Array *array, int index)
{
    void *item = array_item<void>(array, index);
    if (item)
        array->current = index + 1 < array->items ? index + 1 : -1;
    return item;
}

void *array_get(Array *array)
{
    return array && array->current != -1 ? array_get_num(array, array->current) : nullptr;
}

void array_start(Array *array)
{
    if (array)
        array->current = 0;
}

void array_goto(Array *array, int index)
{
    if (array && index < array->items)
        array->current = index;
}

void array_next(Array *array)
{
    if (array && array->current != -1 && ++array->current == array->items)
        array->current = -1;
}

void array_prev(Array *array)
{
    if (array && array->current != 0)
        array->current--;
}

void array_free(Array **array)
{
    if (array && *array)
        release(array);
}

void array_free_dealloc(Array **array)
{
    array_free_fn(array, [](void **item) { std::free(*item); });
}

void array_free_fn(Array **array, ArrayFreeFn release_item)
{
    if (!array || !*array)
        return;
    if (release_item)
        for (int index = 0; index < (*array)->items; index++)
            release_item(&(*array)->data[index]);
    release(array);
}
