" A product's four files, known by their standing side by side: the endings alone are anybody's.
function! s:Detect(format) abort
  let l:stem = expand('<afile>:p:r')
  if filereadable(l:stem . '.dat') && filereadable(l:stem . '.int')
        \ && filereadable(l:stem . '.q') && filereadable(l:stem . '.cpy')
    let &l:filetype = 'productinstall' . a:format
  endif
endfunction

autocmd BufNewFile,BufRead *.dat call s:Detect('data')
autocmd BufNewFile,BufRead *.int call s:Detect('init')
autocmd BufNewFile,BufRead *.q call s:Detect('question')
autocmd BufNewFile,BufRead *.cpy call s:Detect('copy')
