" Vim compiler file: the mistakes in a product's files, by product-kit check.
"
"     :compiler productkit
"     :make              checks the product in the present folder; :cnext goes on to the next finding

if exists('current_compiler')
  finish
endif
let current_compiler = 'productkit'

CompilerSet makeprg=product-kit\ check
CompilerSet errorformat=%f:%l:\ %trror:\ %m,%f:%l:\ %tarning:\ %m,%-G%.%#
