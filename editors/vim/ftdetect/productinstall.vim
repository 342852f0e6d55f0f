" A product's four files, known by their standing side by side, for the endings alone are anybody's.
" A script that stands alone is known by its first line that is neither a comment nor a section.
let s:first_line = {
      \ 'init': '^\%(Exist\|Copy\|TimeDate\|WFile\|RFile\|HTTP_\a\+\)\%(\s\+\S\+\)\{4}',
      \ 'question': '\c^\%(Text\|YN\|Dir\%(Exist\|Empty\)\=\|File\%(Exist\|Name\)\=\|Copy\|Exist\|Error\|Loop\)\s',
      \ 'copy': '\c^\%(Copy\%(File\|Dir\)\|MkDir\|Ini\|Rename\|Rm\%(File\|Dir\)\|Ch\%(own\|mod\)\|Exist\|Error\|[WR]File\)\s',
      \ }

function! s:StandsAmongFour() abort
  let l:stem = expand('<afile>:p:r')
  return filereadable(l:stem . '.dat') && filereadable(l:stem . '.int')
        \ && filereadable(l:stem . '.q') && filereadable(l:stem . '.cpy')
endfunction

function! s:BeginsAs(format) abort
  let l:section = a:format ==# 'init'
  for l:line in map(getline(1, 50), 'trim(v:val)')
    if l:line[0] ==# '['
      let l:section = 1
    elseif l:line !=# '' && l:line[0] !=# '#'
      return l:section && l:line =~# s:first_line[a:format]
    endif
  endfor
endfunction

function! s:Detect(format) abort
  if s:StandsAmongFour() || has_key(s:first_line, a:format) && s:BeginsAs(a:format)
    let &l:filetype = 'productinstall' . a:format
  endif
endfunction

autocmd BufNewFile,BufRead *.dat call s:Detect('data')
autocmd BufNewFile,BufRead *.int call s:Detect('init')
autocmd BufNewFile,BufRead *.q call s:Detect('question')
autocmd BufNewFile,BufRead *.cpy call s:Detect('copy')
